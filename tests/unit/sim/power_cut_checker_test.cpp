#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "power_cut_checker.h"
#include "power_cut_trace.h"
#include "strace_log.h"

namespace {

using sim::PreexistingFile;
using ::testing::ElementsAreArray;

// The collector's run as strace logs it, cut down to what touches files: the
// staged info file, the shell whose tar forks a child that creates the archive,
// puts it on its standard output and becomes the shell that runs bzip2; the
// staging directory removed, sync(). The child runs before tar's clone returns,
// as strace often shows it.
constexpr const char* kCollect = R"(100 execve("/crash-dump", ["/crash-dump"], 0x7ffc /* 1 var */) = 0
100 openat(AT_FDCWD, "/var/run/crash-dump/new/info", O_WRONLY|O_CREAT|O_TRUNC, 0666) = 4
100 write(4, "type=post-mortem\n", 17) = 17
100 close(4)                          = 0
100 clone(child_stack=NULL, flags=CLONE_CHILD_CLEARTID|CLONE_CHILD_SETTID|SIGCHLD, child_tidptr=0x7f) = 101
101 execve("/bin/sh", ["/bin/sh", "-c", "cd /var/run/crash-dump/new || ex"...], 0x7ffc /* 1 var */) = 0
101 chdir("/var/run/crash-dump/new") = 0
101 vfork( <unfinished ...>
102 execve("/usr/bin/tar", ["tar", "-cjf", "/var/lib/lumora/crash-dump/crash"..., "."], 0x56 /* 3 vars */ <unfinished ...>
101 <... vfork resumed>)              = 102
102 <... execve resumed>)             = 0
102 openat(AT_FDCWD, ".", O_RDONLY|O_NOCTTY|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC) = 3
102 clone(child_stack=NULL, flags=CLONE_CHILD_CLEARTID|CLONE_CHILD_SETTID|SIGCHLD <unfinished ...>
103 close(3)                          = 0
103 creat("/var/lib/lumora/crash-dump/crash-dump.tar.bz2", 0666) = 3
103 close(1)                          = 0
103 dup(3)                            = 1
103 close(3 <unfinished ...>
102 <... clone resumed>, child_tidptr=0x7fa1) = 103
103 <... close resumed>)              = 0
102 openat(3, "info", O_RDONLY|O_NOCTTY|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC) = 5
103 execve("/bin/sh", ["/bin/sh", "-c", "bzip2"], 0x7ffd /* 3 vars */) = 0
103 vfork( <unfinished ...>
104 execve("/usr/bin/bzip2", ["bzip2"], 0x55ee /* 3 vars */ <unfinished ...>
103 <... vfork resumed>)              = 104
104 <... execve resumed>)             = 0
104 write(1, "BZh91AY&SY\241?\215\327\0\0"..., 900000) = 900000
104 write(1, "\27rE8P\220\0\0\0\0"..., 39) = 39
100 openat(AT_FDCWD, "/var/run/crash-dump/new", O_RDONLY|O_NONBLOCK|O_CLOEXEC|O_DIRECTORY) = 4
100 unlink("/var/run/crash-dump/new/info") = 0
100 close(4)                          = 0
100 sync()                            = 0
)";

constexpr const char* kInfoInPlace = R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump/crash-dump.info", O_WRONLY|O_CREAT|O_TRUNC, 0666) = 4
100 write(4, "reset=watchdog_reset\n", 21) = 21
100 write(4, "type=post-mortem\n", 17) = 17
)";

constexpr const char* kCloseInfo = R"(100 close(4)                          = 0
)";

constexpr const char* kMarker = R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump/crash-dump.ready", O_WRONLY|O_CREAT|O_TRUNC|O_CLOEXEC, 0666) = 4
100 fsync(4)                          = 0
100 close(4)                          = 0
)";

constexpr const char* kDirectorySync = R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump", O_RDONLY|O_DIRECTORY|O_CLOEXEC) = 4
100 fsync(4)                          = 0
100 close(4)                          = 0
)";

// The info file written whole beside its name, each write synchronous, then
// renamed over the earlier one.
constexpr const char* kInfoRenamed =
    R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump/crash-dump.info.tmp", O_WRONLY|O_CREAT|O_TRUNC|O_DSYNC|O_CLOEXEC, 0666) = 4
100 write(4, "reset=watchdog_reset\ntype=post-mortem\n", 38) = 38
100 close(4)                          = 0
100 rename("/var/lib/lumora/crash-dump/crash-dump.info.tmp", "/var/lib/lumora/crash-dump/crash-dump.info") = 0
)";

// The fixed order: the earlier marker goes first, for good, and every file
// and name reaches storage before the marker, whose own name follows it.
constexpr const char* kUnlinkMarker = R"(100 unlink("/var/lib/lumora/crash-dump/crash-dump.ready") = 0
)";
constexpr const char* kNoMarkerToUnlink =
    R"(100 unlink("/var/lib/lumora/crash-dump/crash-dump.ready") = -1 ENOENT (No such file or directory)
)";
constexpr const char* kInfoSync = R"(100 fsync(4)                          = 0
)";

const std::string kToday = std::string(kCollect) + kInfoInPlace + kCloseInfo + kMarker;
const std::string kFixedRun = std::string(kDirectorySync) + kCollect + kInfoInPlace + kInfoSync + kCloseInfo
    + kDirectorySync + kMarker + kDirectorySync;
const std::string kFixed = kUnlinkMarker + kFixedRun;
const std::string kFixedWithoutEarlierDump = kNoMarkerToUnlink + kFixedRun;
const std::string kRenamedBeforeMarker = std::string(kUnlinkMarker) + kDirectorySync + kCollect + kInfoRenamed;
const std::string kRenamed = kRenamedBeforeMarker + kDirectorySync + kMarker + kDirectorySync;
const std::string kRenameNotSynced = kRenamedBeforeMarker + kMarker + kDirectorySync;

const std::vector<PreexistingFile> kEmpty;
const std::vector<PreexistingFile> kEarlierDump = {
    {"/var/lib/lumora/crash-dump/crash-dump.tar.bz2", 4096},
    {"/var/lib/lumora/crash-dump/crash-dump.info", 300},
    {"/var/lib/lumora/crash-dump/crash-dump.ready", 0},
};

struct Case {
    const char* name;
    std::vector<PreexistingFile> before;
    std::string trace;
    size_t cut_points;
    uint64_t states;
    size_t violations;
    std::string first_violation;   // "operation: example"
    std::vector<std::string> not_durable_at_exit;
};

void PrintTo(const Case& c, std::ostream* out)
{
    *out << c.name;
}

// strace's C-style strings: paths can hold any byte.
TEST(StraceStringTest, EscapesAreUndone)
{
    const std::pair<const char*, std::string> cases[] = {
        {R"("/var/lib/plain")", "/var/lib/plain"},
        {R"("quote \" and backslash \\")", "quote \" and backslash \\"},
        {R"("\n\t\r\v\f")", "\n\t\r\v\f"},
        {R"("octal \0\12\101\3770")", std::string("octal \0\n" "A\377" "0", 11)},
        {R"("hex \x41\xff")", "hex A\xff"},
        {R"("cut short"...)", "cut short"},
    };
    for (const auto& [argument, text] : cases)
        EXPECT_EQ(sim::Unquote(argument), text) << argument;
}

class PowerCutCheckerTest : public ::testing::TestWithParam<Case> {};

TEST_P(PowerCutCheckerTest, FindsTheCutPointsWhereTheMarkerLies)
{
    const Case& c = GetParam();
    const sim::PowerCutReport report =
        sim::CheckPowerCuts(sim::ResolveFileOperations(sim::ParseStraceLog(c.trace)), c.before, sim::kCollectorDump);

    EXPECT_EQ(report.cut_points, c.cut_points);
    EXPECT_EQ(report.states, c.states);
    ASSERT_EQ(report.violations.size(), c.violations);
    if (c.violations > 0) {
        EXPECT_EQ(report.violations[0].operation + ": " + report.violations[0].example, c.first_violation);
    }
    EXPECT_TRUE(report.handed_off);
    EXPECT_THAT(report.not_durable_at_exit, ElementsAreArray(c.not_durable_at_exit));
}

INSTANTIATE_TEST_SUITE_P(
    Orders, PowerCutCheckerTest,
    ::testing::Values(
        // tar empties the waiting archive while its marker stands; later the
        // marker stands beside this run's archive and the earlier info file.
        Case{"TodayWithEarlierDump", kEarlierDump, kToday, 9, 27, 9,
             "tar[103] creat /var/lib/lumora/crash-dump/crash-dump.tar.bz2: crash-dump.ready present, "
             "crash-dump.tar.bz2 empty, crash-dump.info the earlier dump's",
             {"crash-dump.info: content not durable"}},
        // Only the marker's content is synced: its name may reach storage
        // before the info file's name and content do.
        Case{"TodayInEmptyDirectory", kEmpty, kToday, 9, 35, 2,
             "crash-dump[100] openat /var/lib/lumora/crash-dump/crash-dump.ready: crash-dump.ready present, "
             "crash-dump.tar.bz2 this run's, crash-dump.info empty",
             {"crash-dump.ready: directory entry not durable", "crash-dump.info: directory entry not durable",
              "crash-dump.info: content not durable"}},
        Case{"FixedWithEarlierDump", kEarlierDump, kFixed, 14, 29, 0, "", {}},
        Case{"FixedInEmptyDirectory", kEmpty, kFixedWithoutEarlierDump, 13, 28, 0, "", {}},
        Case{"InfoRenamedIntoPlace", kEarlierDump, kRenamed, 13, 27, 0, "", {}},
        // Until the directory is synced, the info file's name may still
        // reach the earlier file, and the marker's name may get there first.
        Case{"RenameNotSyncedBeforeMarker", kEarlierDump, kRenameNotSynced, 12, 38, 2,
             "crash-dump[100] openat /var/lib/lumora/crash-dump/crash-dump.ready: crash-dump.ready present, "
             "crash-dump.tar.bz2 this run's, crash-dump.info the earlier dump's",
             {}}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
