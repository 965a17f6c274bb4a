#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "kernel_log.h"
#include "platform/singleton.h"

namespace {

struct Registered : tessel::Singleton<Registered> {
    // Registered objects are 8-byte aligned, as anything holding a 64-bit field is.
    uint64_t value = 7;
};

TEST(SingletonTest, RegistersWhileTheOwnerLives)
{
    {
        Registered owner;
        EXPECT_EQ(tessel::Singleton<Registered>::GetInstance(), &owner);
    }
    Registered again;
    EXPECT_EQ(tessel::Singleton<Registered>::GetInstance()->value, 7);
}

TEST(SingletonDeathTest, AskingBeforeConstructionReportsTheInvalidPointer)
{
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            tessel::Singleton<Registered>::GetInstance();
        },
        "ASSERT FAILED: Invalid pointer\r\nPointer=\\(nil\\)\n\r\nlib/platform/singleton.h:[0-9]+:"
        "static T\\* tessel::Singleton<T>::GetInstance\\(\\) \\[with T = .*Registered\\]");
}

TEST(SingletonDeathTest, SecondConstructionAborts)
{
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            Registered first;
            Registered second;
        },
        "ASSERT FAILED: sm_instance == __null\r\nlib/platform/singleton.h:[0-9]+:"
        "tessel::Singleton<T>::Singleton\\(\\) \\[with T = .*Registered\\]");
}

struct Counted {
    Counted() { ++constructed; }
    static inline int constructed = 0;
};

struct AutoMade : tessel::AutoCreateSingleton<AutoMade>, Counted {};

TEST(AutoCreateSingletonTest, MakesOneInstanceOnFirstUse)
{
    AutoMade& first = tessel::AutoCreateSingleton<AutoMade>::GetInstance();
    AutoMade& second = tessel::AutoCreateSingleton<AutoMade>::GetInstance();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(Counted::constructed, 1);
}

struct RacedFor : tessel::AutoCreateSingleton<RacedFor> {
    RacedFor() { ++constructed; }
    static inline std::atomic<int> constructed = 0;
};

// Threads that ask at the same moment: one constructs, all get that one.
TEST(AutoCreateSingletonThreadsTest, FirstUseFromManyThreadsMakesOneInstance)
{
    constexpr size_t kThreads = 8;
    std::atomic<bool> start = false;
    std::vector<RacedFor*> seen(kThreads);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (!start)
                std::this_thread::yield();
            seen[i] = &tessel::AutoCreateSingleton<RacedFor>::GetInstance();
        });
    }
    start = true;
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(RacedFor::constructed, 1);
    for (RacedFor* instance : seen)
        EXPECT_EQ(instance, seen.front());
}

} // namespace
