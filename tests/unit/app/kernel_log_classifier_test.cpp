#include <gtest/gtest.h>

#include <sstream>

#include "app/kernel_log_classifier.h"
#include "param_name.h"

namespace {

struct LogCase {
    const char* what;
    std::string log;
    CrashInfo expected;
};

class KernelLogTest : public ::testing::TestWithParam<LogCase> {};

TEST_P(KernelLogTest, RecordsWhatTheLogSays)
{
    std::istringstream log(GetParam().log);
    EXPECT_EQ(ClassifyKernelLog(log), GetParam().expected);
}

// In the literals below "\\x0a" is the four characters the kernel writes for a
// line break inside a message; a capture runs on across it.
const LogCase kLines[] = {
    {"process", "6,120,5003,-;Process swapper (pid: 0)\n", {{"process", "swapper"}}},
    {"assert block", "3,9,1,-;User space assert from p\\x0af.c:10\\x0aASSERT Executing x\\x0aBacktrace\n",
     {{"assert", "x\\x0aBacktrace"}}},
    {"glib net error", "3,10,2,-;**\\x0aGLib-Net:ERROR:netio.c:12: failed\n", {{"assert", "netio.c:12: failed"}}},
    {"glib critical", "4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 12:34:56.789: unref\n", {{"assert", "unref"}}},
    {"forced", "6,12,4,-;Requesting crash at web user request.\n", {{"forced", "1"}}},
    {"script runtime error", "6,1,1,-;ScriptRuntimeError: runtime error 24 in lobby.script line 42\n",
     {{"script_runtime_error", "runtime error 24 in lobby.script line 42"}}},
    // Only the start of a message counts, and a capture ends at the first byte
    // that the kernel would have escaped.
    {"no header", "Process swapper\n", {}},
    {"header of one character or more", ";Process swapper\n6;Process init\n", {{"process", "init"}}},
    {"literal mid message", "6,12,4,-;user: Requesting crash at web user request.\n", {}},
    {"capture ends at tab", "6,1,1,-;LMPLAY: a\tb\n", {{"lmplay", "a"}}},
    {"capture ends at high byte", "6,1,1,-;LMPLAY: caf\xc3\xa9 x\n", {{"lmplay", "caf"}}},
    {"one digit hour", "4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 1:34:56.789: x\n", {}},
    {"expression mid segment", "3,9,1,-;User space assert from p\\x0af.c:10 ASSERT Executing x\\x0a\n", {}},
};
INSTANTIATE_TEST_SUITE_P(Lines, KernelLogTest, ::testing::ValuesIn(kLines), test_support::NameFromWhat());

// The earliest assertion or script error is the cause and what follows its
// fallout; of process, player and script lines the latest tells the crash.
const LogCase kRepeats[] = {
    {"latest process", "6,1,1,-;Process init\n6,2,2,-;Process  (pid: 1)\n", {{"process", ""}}},
    {"latest player line", "6,1,1,-;LMPLAY: a\n6,2,2,-;LMPLAY: b", {{"lmplay", "b"}}}, // last line unterminated
    {"latest script hash", "6,1,1,-;ScriptHash: a\n6,2,2,-;ScriptHash: b\n", {{"script_hash", "b"}}},
    {"latest script name", "6,1,1,-;ScriptName: a\n6,2,2,-;ScriptName: b\n", {{"script_name", "b"}}},
    {"earliest load error", "6,1,1,-;ScriptLoadError: a\n6,2,2,-;ScriptLoadError: b\n", {{"script_load_error", "a"}}},
    {"earliest runtime error", "6,1,1,-;ScriptRuntimeError: a\n6,2,2,-;ScriptRuntimeError: b\n",
     {{"script_runtime_error", "a"}}},
    {"earliest assertion", "ASSERT Executing a\n3,2,2,-;**\\x0aGLib-Net:ERROR:b\n3,3,3,-;User space assert from p\\x0a"
     "ASSERT Executing c\n4,4,4,-;\\x0a(process:1): GLib-CRITICAL **: 12:34:56.789: d\n", {{"assert", "a"}}},
    {"earliest critical", "4,1,1,-;\\x0a(process:1): GLib-CRITICAL **: 12:34:56.789: a\nASSERT Executing b",
     {{"assert", "a"}}},
};
INSTANTIATE_TEST_SUITE_P(Repeats, KernelLogTest, ::testing::ValuesIn(kRepeats), test_support::NameFromWhat());

} // namespace
