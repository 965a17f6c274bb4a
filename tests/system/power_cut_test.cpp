// Collectors with known answers under --power-cuts: the real one, with an empty output directory and with an earlier
// dump waiting for its upload, and stand-ins (shell scripts run as the collector) that break the hand-off in one way
// each.

#include <sstream>

#include "param_name.h"
#include "power_cut_analysis.h"
#include "power_cut_trace.h"
#include "sandbox_test.h"

namespace {

// In the output directory: archive and info file written under temporary names, synced and renamed; the directory
// synced.
#define WRITE_AND_SYNC                                                                                                 \
    "echo dump >a.tmp && sync a.tmp && mv a.tmp crash-dump.tar.bz2\n"                                                  \
    "echo info >i.tmp && sync i.tmp && mv i.tmp crash-dump.info && sync .\n"
#define MARKER_SYNCED ": >crash-dump.ready && sync crash-dump.ready .\n"

struct Collector {
    const char* what;
    const char* scenario;
    const char* script;   // nullptr: the real collector
    int status;
    const char* verdict;
};

constexpr const char* kSound = " 0 violations\nhand-off durable at exit: yes\n";

const Collector kCollectors[] = {
    {"real-empty-directory", "watchdog-crash", nullptr, 0, kSound},
    {"real-earlier-dump-waiting", "earlier-dump-waiting", nullptr, 0, kSound},
    {"temporary-names-marker-last", "watchdog-crash", WRITE_AND_SYNC MARKER_SYNCED, 0, kSound},
    {"marker-first", "watchdog-crash", MARKER_SYNCED WRITE_AND_SYNC, 1,
     ": crash-dump.ready present, crash-dump.tar.bz2 absent, crash-dump.info absent\n"},
    {"marker-entry-not-synced", "watchdog-crash", WRITE_AND_SYNC ": >crash-dump.ready\n", 1,
     " 0 violations\nhand-off durable at exit: no (crash-dump.ready: directory entry not durable)\n"},
    {"archive-emptied-after-marker", "watchdog-crash", WRITE_AND_SYNC MARKER_SYNCED "truncate -s 0 crash-dump.tar.bz2\n",
     1, "] ftruncate /var/lib/lumora/crash-dump/crash-dump.tar.bz2: crash-dump.ready present, crash-dump.tar.bz2 of 5 "
        "bytes, not this run's last, crash-dump.info this run's\n"},
    // Maps the archive shared and writable, and reads random bytes into the mapping (x86-64 call numbers).
    {"archive-rewritten-through-mapping", "watchdog-crash", WRITE_AND_SYNC MARKER_SYNCED
     "perl -e 'open F, \"+<\", $ARGV[0]; $m = syscall(9, 0, 8, 3, 1, fileno F, 0); open R, \"</dev/urandom\";"
     " syscall(0, fileno R, $m, 4)' crash-dump.tar.bz2\n",
     2, "] mmap /var/lib/lumora/crash-dump/crash-dump.tar.bz2"},
};

class PowerCutTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<Collector> {};

TEST_P(PowerCutTest, GetsItsVerdict)
{
    // The memory checker and the tracer cannot both follow the collector.
    if (std::getenv(sandbox::kValgrindSwitch) != nullptr)
        GTEST_SKIP() << "traced runs are not checked for memory errors";
    const Collector& collector = GetParam();
    Prepare(collector.scenario);
    if (collector.script != nullptr) {
        m_device.WriteFile("/stand-in", std::string("#!/bin/sh\ncd /var/lib/lumora/crash-dump || exit 1\n") + collector.script, 0755);
        m_device.SetProgram(m_device.Path("/stand-in"));
    }
    std::ostringstream report;
    int status = 2;
    try {
        status = sim::RunPowerCutAnalysis(m_device, report);
    } catch (const sim::UnmodelledCall& call) {
        report << call.what();
    }

    EXPECT_EQ(status, collector.status) << report.str();
    EXPECT_THAT(report.str(), sandbox::HasSubstr(collector.verdict));
}

INSTANTIATE_TEST_SUITE_P(Collectors, PowerCutTest, ::testing::ValuesIn(kCollectors), test_support::NameFromWhat());

} // namespace
