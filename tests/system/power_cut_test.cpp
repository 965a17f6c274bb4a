// Collectors with known verdicts under --power-cuts: the real one, and stand-ins (shell scripts run as the collector).

#include <sstream>

#include "param_name.h"
#include "power_cut_analysis.h"
#include "sandbox_test.h"

namespace {

// Archive and info file written under temporary names, synced and renamed; the marker synced with its directory.
#define ARCHIVE_AND_INFO "echo dump >a.tmp && sync a.tmp && mv a.tmp crash-dump.tar.bz2\n" \
    "echo info >i.tmp && sync i.tmp && mv i.tmp crash-dump.info\n"
#define MARKER ": >crash-dump.ready && sync crash-dump.ready .\n"
#define CAREFUL ARCHIVE_AND_INFO "sync .\n" MARKER

struct Collector {
    const char* what;
    const char* scenario;
    std::string script; // "": the real collector
    int status;
    const char* verdict;
};

constexpr const char* kSound = " 0 violations\nhand-off durable at exit: yes\n";

const Collector kCollectors[] = {
    {"real-empty-directory", "watchdog-crash", "", 0, kSound},
    {"real-earlier-dump-waiting", "earlier-dump-waiting", "", 0, kSound},
    {"real-core-does-not-fit", "core-does-not-fit", "", 0, kSound},
    {"temporary-names-marker-last", "watchdog-crash", CAREFUL, 0, kSound},
    {"marker-first", "watchdog-crash", MARKER ARCHIVE_AND_INFO "sync .\n", 1, "present, crash-dump.tar.bz2 absent"},
    {"marker-entry-not-synced", "watchdog-crash", ARCHIVE_AND_INFO "sync .\n: >crash-dump.ready\n", 1,
     " 0 violations\nhand-off durable at exit: no (crash-dump.ready: directory entry not durable)\n"},
    {"archive-emptied-after-marker", "watchdog-crash", CAREFUL "truncate -s 0 crash-dump.tar.bz2\n", 1,
     "ftruncate /var/lib/lumora/crash-dump/crash-dump.tar.bz2: crash-dump.ready present, crash-dump.tar.bz2 of 5 "},
    // Maps the archive shared and writable, and reads random bytes into the mapping (x86-64 call numbers).
    {"archive-rewritten-through-mapping", "watchdog-crash", CAREFUL "perl -e 'open F, \"+<\", "
     "$ARGV[0]; $m = syscall(9, 0, 8, 3, 1, fileno F, 0); open R, \"</dev/urandom\"; syscall(0, fileno R, $m, 4)' "
     "crash-dump.tar.bz2\n", 2, "] mmap /var/lib/lumora/crash-dump/crash-dump.tar.bz2"},
    {"archive-rewritten-under-earlier-marker", "earlier-dump-waiting", "echo dump >crash-dump.tar.bz2\n", 1,
     ": crash-dump.ready present, crash-dump.tar.bz2 empty, crash-dump.info the earlier dump's\n"},
    // The earlier info file written after its replacement, while its name may still reach it.
    {"earlier-info-written-after-replacement", "earlier-dump-waiting", "rm crash-dump.ready && sync .\nexec 3>>"
     "crash-dump.info\n" ARCHIVE_AND_INFO "echo x >&3\n" MARKER, 1,
     ": crash-dump.ready present, crash-dump.tar.bz2 this run's, crash-dump.info of 610 bytes, not this run's last\n"},
};

class PowerCutTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<Collector> {};

TEST_P(PowerCutTest, GetsItsVerdict)
{
    // The memory checker and the tracer cannot both follow the collector.
    if (std::getenv(sandbox::kValgrindSwitch) != nullptr)
        GTEST_SKIP() << "traced runs are not checked for memory errors";
    Prepare(GetParam().scenario);
    if (!GetParam().script.empty()) {
        m_device.WriteFile("/stand-in", "#!/bin/sh\ncd /var/lib/lumora/crash-dump\n" + GetParam().script, 0755);
        m_device.SetProgram(m_device.Path("/stand-in"));
    }
    std::ostringstream report;
    int status = 2;
    try {
        status = sim::RunPowerCutAnalysis(m_device, report);
    } catch (const sim::UnmodelledCall& call) {
        report << call.what();
    }

    EXPECT_EQ(status, GetParam().status) << report.str();
    EXPECT_THAT(report.str(), sandbox::HasSubstr(GetParam().verdict));
}

INSTANTIATE_TEST_SUITE_P(Collectors, PowerCutTest, ::testing::ValuesIn(kCollectors), test_support::NameFromWhat());

} // namespace
