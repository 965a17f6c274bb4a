#include <gtest/gtest.h>

#include <cstdint>

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

} // namespace
