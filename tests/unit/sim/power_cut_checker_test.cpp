#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "power_cut_checker.h"
#include "strace_log.h"

namespace {

// strace's C-style strings: paths can hold any byte.
TEST(StraceStringTest, EscapesAreUndone)
{
    EXPECT_EQ(sim::Unquote(R"("q\" b\\ \n\t\r\v\f \12\101\3770 \x41\xff"...)"), "q\" b\\ \n\t\r\v\f \nA\3770 A\xff");
}

// The collector's run as strace logs it, cut down to what touches the dump: tar's child creates the
// archive, runs bzip2 on it as standard output; then sync(). The child runs before the clone returns.
const std::string kCollect = R"(100 execve("/crash-dump", ["/crash-dump"], 0x7ffc /* 1 var */) = 0
100 vfork()                           = 101
101 execve("/usr/bin/tar", ["tar", "-cjf", "/var/lib/lumora/crash-dump/crash"..., "."], 0x56 /* 3 vars */) = 0
101 clone(child_stack=NULL, flags=CLONE_CHILD_CLEARTID|CLONE_CHILD_SETTID|SIGCHLD <unfinished ...>
102 creat("/var/lib/lumora/crash-dump/crash-dump.tar.bz2", 0666) = 3
102 dup2(3, 1)                        = 1
102 close(3)                          = 0
101 <... clone resumed>, child_tidptr=0x7fa1) = 102
102 execve("/usr/bin/bzip2", ["bzip2"], 0x55ee /* 3 vars */) = 0
102 write(1, "BZh91AY&SY\241?\215\327\0\0"..., 900000) = 900000
100 sync()                            = 0
)";
const std::string kInfo = R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump/crash-dump.info", O_WRONLY|O_CREAT|O_TRUNC, 0666) = 4
100 write(4, "type=post-mortem\n", 17) = 17
100 close(4)                          = 0
)";
// Written whole beside its name, synchronously, then renamed over the earlier one.
const std::string kInfoRenamed = R"(100 openat(AT_FDCWD, "/var/lib/lumora/crash-dump/crash-dump.info.tmp", O_WRONLY|O_CREAT|O_DSYNC, 0666) = 4
100 write(4, "type=post-mortem\n", 17) = 17
100 rename("/var/lib/lumora/crash-dump/crash-dump.info.tmp", "/var/lib/lumora/crash-dump/crash-dump.info") = 0
)";
std::string Fsynced(const std::string& name, const std::string& flags)
{
    return "100 openat(AT_FDCWD, \"/var/lib/lumora/crash-dump" + name + "\", " + flags
        + ") = 4\n100 fsync(4) = 0\n100 close(4) = 0\n";
}
const std::string kMarker = Fsynced("/crash-dump.ready", "O_WRONLY|O_CREAT|O_TRUNC|O_CLOEXEC, 0666");
const std::string kDirectorySync = Fsynced("", "O_RDONLY|O_DIRECTORY|O_CLOEXEC");
const std::string kToday = kCollect + kInfo + kMarker;
// The fixed order: the earlier marker goes for good, every file and name is durable before the marker.
const std::string kUnlinkMarker = R"(100 unlink("/var/lib/lumora/crash-dump/crash-dump.ready") = )";
const std::string kFixed = kDirectorySync + kCollect + kInfo + Fsynced("/crash-dump.info", "O_RDONLY") + kDirectorySync
    + kMarker + kDirectorySync;
const std::string kRenamed = kUnlinkMarker + "0\n" + kDirectorySync + kCollect + kInfoRenamed;

const std::vector<sim::PreexistingFile> kEmpty, kEarlierDump = {{"/var/lib/lumora/crash-dump/crash-dump.tar.bz2", 4096},
    {"/var/lib/lumora/crash-dump/crash-dump.info", 300}, {"/var/lib/lumora/crash-dump/crash-dump.ready", 0}};

TEST(PowerCutCheckerTest, FindsTheCutPointsWhereTheMarkerLies)
{
    const struct {
        std::vector<sim::PreexistingFile> before;
        std::string trace;
        uint64_t cut_points, states, violations;
        std::string first_violation;   // "operation: example"
        std::vector<std::string> not_durable_at_exit;
    } cases[] = {
        // tar empties the waiting archive while its marker stands.
        {kEarlierDump, kToday, 7, 17, 7, "tar[102] creat /var/lib/lumora/crash-dump/crash-dump.tar.bz2: crash-dump.ready "
         "present, crash-dump.tar.bz2 empty, crash-dump.info the earlier dump's", {"crash-dump.info: content not durable"}},
        // Only the marker is synced: its name may reach storage before the info file's name and content.
        {kEmpty, kToday, 7, 23, 2, "crash-dump[100] openat /var/lib/lumora/crash-dump/crash-dump.ready: crash-dump.ready "
         "present, crash-dump.tar.bz2 this run's, crash-dump.info empty", {"crash-dump.ready: directory entry not durable",
         "crash-dump.info: directory entry not durable", "crash-dump.info: content not durable"}},
        {kEarlierDump, kUnlinkMarker + "0\n" + kFixed, 12, 21, 0, "", {}},
        {kEmpty, kUnlinkMarker + "-1 ENOENT (No such file or directory)\n" + kFixed, 11, 20, 0, "", {}},
        {kEarlierDump, kRenamed + kDirectorySync + kMarker + kDirectorySync, 12, 23, 0, "", {}},
        // Until the directory is synced, the info file's name may still reach the earlier file.
        {kEarlierDump, kRenamed + kMarker + kDirectorySync, 11, 34, 2, "crash-dump[100] openat /var/lib/lumora/crash-dump/"
         "crash-dump.ready: crash-dump.ready present, crash-dump.tar.bz2 this run's, crash-dump.info the earlier dump's", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.trace);
        const sim::PowerCutReport report = sim::CheckPowerCuts(
            sim::ResolveFileOperations(sim::ParseStraceLog(c.trace)), c.before, sim::kCollectorDump);
        EXPECT_EQ(report.cut_points, c.cut_points);
        EXPECT_EQ(report.states, c.states);
        ASSERT_EQ(report.violations.size(), c.violations);
        EXPECT_EQ(report.violations.empty() ? "" : report.violations[0].operation + ": " + report.violations[0].example,
                  c.first_violation);
        EXPECT_EQ(report.not_durable_at_exit, c.not_durable_at_exit);
    }
}

} // namespace
