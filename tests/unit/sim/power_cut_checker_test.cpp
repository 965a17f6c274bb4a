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
    EXPECT_EQ(sim::DescriptorPath(R"(AT_FDCWD</a\76b (deleted)>)"), "/a>b (deleted)");
}

const std::string kDir = "/var/lib/lumora/crash-dump";

std::vector<sim::FileOperation> Resolve(const std::string& trace)
{
    return sim::ResolveFileOperations(sim::ParseStraceLog(trace), "/root", kDir);
}

// The collector's run as strace -y logs it from outside the device root /root, cut down to what touches the dump:
// tar's child creates the archive and runs bzip2 on it as standard output; then sync(). The child runs before the
// clone returns.
const std::string kCollect = R"(100 execve("/crash-dump", ["/crash-dump"], 0x7ffc /* 1 var */) = 0
100 vfork()                           = 101
101 execve("/usr/bin/tar", ["tar", "-cjf", "/var/lib/lumora/crash-dump/crash"..., "."], 0x56 /* 3 vars */) = 0
101 clone(child_stack=NULL, flags=CLONE_CHILD_CLEARTID|CLONE_CHILD_SETTID|SIGCHLD <unfinished ...>
102 creat("/var/lib/lumora/crash-dump/crash-dump.tar.bz2", 0666) = 3</root/var/lib/lumora/crash-dump/crash-dump.tar.bz2>
101 <... clone resumed>, child_tidptr=0x7fa1) = 102
102 execve("/usr/bin/bzip2", ["bzip2"], 0x55ee /* 3 vars */) = 0
102 write(1</root/var/lib/lumora/crash-dump/crash-dump.tar.bz2>, "BZh91AY&SY\241?\215\327\0\0"..., 900000) = 900000
100 sync()                            = 0
)";
const std::string kInfo = R"(100 openat(AT_FDCWD</root>, "/var/lib/lumora/crash-dump/crash-dump.info", O_WRONLY|O_CREAT|O_TRUNC, 0666) = 4
100 write(4</root/var/lib/lumora/crash-dump/crash-dump.info>, "type=post-mortem\n", 17) = 17
)";
// Written whole beside its name, then renamed over the earlier one, whose descriptor is still open, then synced.
const std::string kInfoRenamed = R"(100 openat(AT_FDCWD</root/var/lib/lumora/crash-dump>, "crash-dump.info.tmp", O_WRONLY|O_CREAT, 0666) = 4
100 write(4</root/var/lib/lumora/crash-dump/crash-dump.info.tmp>, "type=post-mortem\n", 17) = 17
100 rename("crash-dump.info.tmp", "crash-dump.info") = 0
100 fsync(4</root/var/lib/lumora/crash-dump/crash-dump.info>) = 0
100 write(5</root/var/lib/lumora/crash-dump/crash-dump.info (deleted)>, "x", 1) = 1
)";
std::string Fsynced(const std::string& name, const std::string& flags)
{
    return "100 openat(AT_FDCWD</root>, \"" + kDir + name + "\", " + flags + ") = 4\n100 fsync(4</root" + kDir + name
        + ">) = 0\n";
}
const std::string kMarker = Fsynced("/crash-dump.ready", "O_WRONLY|O_CREAT|O_TRUNC|O_CLOEXEC, 0666");
const std::string kDirectorySync = Fsynced("", "O_RDONLY|O_DIRECTORY|O_CLOEXEC");
const std::string kToday = kCollect + kInfo + kMarker;
// The fixed order: the earlier marker goes for good, every file and name is durable before the marker.
const std::string kUnlinkMarker = R"(100 unlink("/var/lib/lumora/crash-dump/crash-dump.ready") = )";
const std::string kFixed = kDirectorySync + kCollect + kInfo + Fsynced("/crash-dump.info", "O_RDONLY") + kDirectorySync
    + kMarker + kDirectorySync;
const std::string kRenamed = kUnlinkMarker + "0\n" + kDirectorySync + "100 chdir(\"" + kDir + "\") = 0\n" + kCollect
    + kInfoRenamed;

const std::vector<sim::PreexistingFile> kEmpty, kEarlierDump = {{kDir + "/crash-dump.tar.bz2", 4096},
    {kDir + "/crash-dump.info", 300}, {kDir + "/crash-dump.ready", 0}};

TEST(PowerCutCheckerTest, FindsTheCutPointsWhereTheMarkerLies)
{
    const struct {
        std::vector<sim::PreexistingFile> before;
        std::string trace;
        uint64_t cut_points, violations;
        std::string first_violation;   // "operation: example"
        std::vector<std::string> not_durable_at_exit;
    } cases[] = {
        // tar empties the waiting archive while its marker stands.
        {kEarlierDump, kToday, 7, 7, "tar[102] creat /var/lib/lumora/crash-dump/crash-dump.tar.bz2: crash-dump.ready "
         "present, crash-dump.tar.bz2 empty, crash-dump.info the earlier dump's", {"crash-dump.info: content not durable"}},
        // Only the marker is synced: its name may reach storage before the info file's name and content.
        {kEmpty, kToday, 7, 2, "crash-dump[100] openat /var/lib/lumora/crash-dump/crash-dump.ready: crash-dump.ready "
         "present, crash-dump.tar.bz2 this run's, crash-dump.info empty", {"crash-dump.ready: directory entry not durable",
         "crash-dump.info: directory entry not durable", "crash-dump.info: content not durable"}},
        {kEarlierDump, kUnlinkMarker + "0\n" + kFixed, 12, 0, "", {}},
        {kEmpty, kUnlinkMarker + "-1 ENOENT (No such file or directory)\n" + kFixed, 11, 0, "", {}},
        // The write to the replaced info file changes nothing that a name may still reach.
        {kEarlierDump, kRenamed + kDirectorySync + kMarker + kDirectorySync, 14, 0, "", {}},
        // Until the directory is synced, the info file's name may still reach the earlier file, written to since.
        {kEarlierDump, kRenamed + kMarker + kDirectorySync, 13, 2, "crash-dump[100] openat /var/lib/lumora/crash-dump/"
         "crash-dump.ready: crash-dump.ready present, crash-dump.tar.bz2 this run's, crash-dump.info of 301 bytes, not "
         "this run's last", {}},
        // A complete archive emptied after the marker: the marker stands beside it, cut or not.
        {kEmpty, kFixed + "100 truncate(\"" + kDir + "/crash-dump.tar.bz2\", 0) = 0\n", 12, 4, "crash-dump[100] openat "
         "/var/lib/lumora/crash-dump/crash-dump.ready: crash-dump.ready present, crash-dump.tar.bz2 of 900000 bytes, not "
         "this run's last, crash-dump.info this run's", {"crash-dump.tar.bz2: content not durable"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.trace);
        const sim::PowerCutReport report = sim::CheckPowerCuts(Resolve(c.trace), c.before);
        EXPECT_EQ(report.cut_points, c.cut_points);
        ASSERT_EQ(report.violations.size(), c.violations);
        EXPECT_EQ(report.violations.empty() ? "" : report.violations[0].operation + ": " + report.violations[0].example,
                  c.first_violation);
        EXPECT_EQ(report.not_durable_at_exit, c.not_durable_at_exit);
    }
}

// A call that changes the dump directory in a way the model does not know ends the analysis, naming it; the same
// call elsewhere, a harmless one, or a failed one does not.
TEST(PowerCutTraceTest, EndsAtEveryCallItHasNoModelFor)
{
    const struct {
        std::string call;
        std::string refusal;   // "" for none
    } cases[] = {
        {"fallocate(3</root/var/lib/lumora/crash-dump/a>, 0, 0, 4096) = 0", "fallocate /var/lib/lumora/crash-dump/a"},
        {"fallocate(3</root/var/lib/lumora/crash-dump/a>, 0, 0, 4096) = -1 ENOSPC (No space left on device)", ""},
        {"fallocate(3</root/var/run/a>, 0, 0, 4096) = 0", ""},
        {"mmap(NULL, 8, PROT_READ|PROT_WRITE, MAP_SHARED, 3</root/var/lib/lumora/crash-dump/a>, 0) = 0x7f00",
         "mmap /var/lib/lumora/crash-dump/a"},
        {"mmap(NULL, 8, PROT_READ, MAP_PRIVATE, 3</root/var/lib/lumora/crash-dump/a>, 0) = 0x7f00", ""},
        {"openat(AT_FDCWD</root>, \"var/lib/lumora/crash-dump\", O_RDWR|O_TMPFILE, 0600) = 3", "openat " + kDir},
        {"renameat2(AT_FDCWD</root/var/lib/lumora/crash-dump>, \"a\", AT_FDCWD</root/var/lib/lumora/crash-dump>, "
         "\"crash-dump.info\", RENAME_EXCHANGE) = 0", "renameat2 /var/lib/lumora/crash-dump/a"},
        {"rename(\"/var/lib/lumora/crash-dump\", \"/var/lib/lumora/old\") = 0", "rename " + kDir},
        {"unlinkat(4</root/var/lib/lumora/crash-dump>, \"d\", AT_REMOVEDIR) = 0", "unlinkat /var/lib/lumora/crash-dump/d"},
        {"mount(\"tmpfs\", \"/var/lib/lumora/crash-dump\", \"tmpfs\", 0, NULL) = 0", "mount " + kDir},
        {"utimensat(AT_FDCWD</root/var/lib/lumora>, \"crash-dump/a\", NULL, 0) = 0", "utimensat " + kDir + "/a"},
        {"mkdir(\"d\", 0777) = 0", "mkdir /var/lib/lumora/crash-dump/d"},
        {"getrandom(\"d\", 1, 0) = 1", ""},
        {"newfstatat(AT_FDCWD</root/var/lib/lumora/crash-dump>, \"a\", {st_mode=S_IFREG|0644, ...}, 0) = 0", ""},
        {"io_uring_setup(8, {flags=0}) = 3", "io_uring_setup, whose requests the trace cannot see"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        const std::string trace = "100 execve(\"/bin/sh\", [\"sh\"], 0x7f /* 1 var */) = 0\n100 chdir(\"" + kDir
            + "\") = 0\n100 " + c.call + "\n";
        std::string refusal;
        try {
            Resolve(trace);
        } catch (const sim::UnmodelledCall& call) {
            refusal = call.what();
        }
        EXPECT_EQ(refusal, c.refusal.empty() ? "" : "not modelled: sh[100] " + c.refusal);
    }
}

} // namespace
