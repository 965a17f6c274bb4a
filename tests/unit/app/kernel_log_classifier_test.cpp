#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "app/kernel_log_classifier.h"

namespace {

using namespace std::string_literals;

struct LogCase {
    const char* name;
    std::string log;
    CrashInfo expected;
};

void PrintTo(const LogCase& c, std::ostream* out)
{
    *out << c.name;
}

std::string CaseName(const ::testing::TestParamInfo<LogCase>& param)
{
    return param.param.name;
}

class ClassifyKernelLogTest : public ::testing::TestWithParam<LogCase> {};

TEST_P(ClassifyKernelLogTest, StoresWhatTheLogSays)
{
    std::istringstream log(GetParam().log);
    EXPECT_EQ(ClassifyKernelLog(log), GetParam().expected);
}

// In the C++ literals below "\\x0a" is the four characters the kernel writes
// for a line break inside a message.
const LogCase kPatterns[] = {
    {"process", "6,120,5003,-;Process swapper (pid: 0, stack limit = 0xc0a00000)\n", {{"process", "swapper"}}},
    {"bare_assert", "ASSERT Executing x > 0\n", {{"assert", "x > 0"}}},
    {"assert_block_runs_across_escaped_breaks",
     "3,9,1,-;User space assert from player\\x0afile.c:10\\x0aASSERT Executing foo() > 0\\x0aBacktrace\n",
     {{"assert", "foo() > 0\\x0aBacktrace"}}},
    {"assert_block_right_after_first_segment", "3,9,1,-;User space assert from p\\x0aASSERT Executing y\n",
     {{"assert", "y"}}},
    {"glib_net_error", "3,10,2,-;**\\x0aGLib-Net:ERROR:gsocket.c:12:f: assertion failed: (x)\n",
     {{"assert", "gsocket.c:12:f: assertion failed: (x)"}}},
    {"glib_critical",
     "4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 12:34:56.789: g_object_unref: assertion 'G_IS_OBJECT (object)' "
     "failed\n",
     {{"assert", "g_object_unref: assertion 'G_IS_OBJECT (object)' failed"}}},
    {"player", "6,5,5,-;LMPLAY: playing presentation 'lobby'\n", {{"lmplay", "playing presentation 'lobby'"}}},
    {"forced", "6,12,4,-;Requesting crash at web user request.\n", {{"forced", "1"}}},
    {"script_hash", "6,1,1,-;ScriptHash: 9f86d081\n", {{"script_hash", "9f86d081"}}},
    {"script_name", "6,1,1,-;ScriptName: lobby.script\n", {{"script_name", "lobby.script"}}},
    {"script_runtime_error", "6,1,1,-;ScriptRuntimeError: a\\x0ab\n", {{"script_runtime_error", "a\\x0ab"}}},
    {"script_load_error", "6,1,1,-;ScriptLoadError: bad file\n", {{"script_load_error", "bad file"}}},
    {"empty_capture_is_a_match", "6,1,1,-;LMPLAY: \n", {{"lmplay", ""}}},
};
INSTANTIATE_TEST_SUITE_P(Patterns, ClassifyKernelLogTest, ::testing::ValuesIn(kPatterns), CaseName);

const LogCase kStoreModes[] = {
    {"process_latest_wins", "6,1,1,-;Process init (pid: 1)\n6,2,2,-;Process player (pid: 812)\n",
     {{"process", "player"}}},
    {"empty_process_name_replaces_earlier", "6,1,1,-;Process init\n6,2,2,-;Process  (pid: 1)\n", {{"process", ""}}},
    {"player_latest_wins", "6,1,1,-;LMPLAY: a\n6,2,2,-;LMPLAY: b\n", {{"lmplay", "b"}}},
    {"script_hash_latest_wins", "6,13,5,-;ScriptHash: a\n6,14,6,-;ScriptHash: b\n", {{"script_hash", "b"}}},
    {"script_name_latest_wins", "6,13,5,-;ScriptName: a\n6,14,6,-;ScriptName: b\n", {{"script_name", "b"}}},
    {"script_load_error_earliest_wins", "6,13,5,-;ScriptLoadError: a\n6,14,6,-;ScriptLoadError: b\n",
     {{"script_load_error", "a"}}},
    {"script_runtime_error_earliest_wins", "6,13,5,-;ScriptRuntimeError: a\n6,14,6,-;ScriptRuntimeError: b\n",
     {{"script_runtime_error", "a"}}},
    {"glib_net_error_kept_over_later_critical",
     "3,10,2,-;**\\x0aGLib-Net:ERROR:first\n4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 12:34:56.789: second\n",
     {{"assert", "first"}}},
    {"bare_assert_kept_over_later_glib_net_error", "ASSERT Executing first\n3,10,2,-;**\\x0aGLib-Net:ERROR:second\n",
     {{"assert", "first"}}},
    {"earlier_critical_kept_over_bare_assert",
     "4,11,3,-;\\x0a(process:1): GLib-CRITICAL **: 12:34:56.789: first\nASSERT Executing second\n",
     {{"assert", "first"}}},
    {"bare_assert_kept_over_assert_block",
     "ASSERT Executing first\n3,9,1,-;User space assert from p\\x0aASSERT Executing second\n", {{"assert", "first"}}},
    {"first_segment_of_a_block_wins", "3,9,1,-;User space assert from p\\x0aASSERT Executing a\tb\\x0aASSERT Executing c\n",
     {{"assert", "a"}}},
    {"keys_are_independent",
     "6,1,1,-;LMPLAY: start\n6,2,2,-;ScriptName: s\n6,3,3,-;ScriptHash: h\n"
     "3,4,4,-;User space assert from player\\x0aplayer.c:88\\x0aASSERT Executing q < 64\n"
     "6,5,5,-;Process player (pid: 812)\n6,6,6,-;Requesting crash at web user request.\n"
     "6,7,7,-;ScriptRuntimeError: r\n6,8,8,-;ScriptLoadError: l\n",
     {{"lmplay", "start"},
      {"script_name", "s"},
      {"script_hash", "h"},
      {"assert", "q < 64"},
      {"process", "player"},
      {"forced", "1"},
      {"script_runtime_error", "r"},
      {"script_load_error", "l"}}},
};
INSTANTIATE_TEST_SUITE_P(StoreModes, ClassifyKernelLogTest, ::testing::ValuesIn(kStoreModes), CaseName);

const LogCase kLineShapes[] = {
    {"empty_log", "", {}},
    {"final_line_without_line_end", "6,1,1,-;LMPLAY: a\n6,2,2,-;LMPLAY: b", {{"lmplay", "b"}}},
    {"no_header", "Process swapper\n", {}},
    {"header_needs_a_character", ";Process swapper\n", {}},
    {"header_ends_at_first_semicolon", "6,1,1,-;x;Process swapper\n", {}},
    {"header_takes_any_byte", "\x80\t\x01;LMPLAY: a\n", {{"lmplay", "a"}}},
    {"literal_in_the_middle", "6,12,4,-;user: Requesting crash at web user request.\n", {}},
    {"literals_are_case_sensitive", "6,1,1,-;lmplay: a\n6,1,1,-;process swapper\n", {}},
    {"bare_assert_needs_the_start_of_the_line", " ASSERT Executing x\n", {}},
    {"rest_stops_at_tab", "6,1,1,-;LMPLAY: a\tb\n", {{"lmplay", "a"}}},
    {"rest_stops_at_carriage_return", "6,1,1,-;LMPLAY: a\r\n", {{"lmplay", "a"}}},
    {"rest_stops_at_high_byte", "6,1,1,-;LMPLAY: caf\xc3\xa9 x\n", {{"lmplay", "caf"}}},
    {"rest_stops_at_nul", "6,1,1,-;LMPLAY: a\0b\n"s, {{"lmplay", "a"}}},
    {"word_stops_at_space", "6,1,1,-;Process a b\n", {{"process", "a"}}},
    {"one_digit_hour", "4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 1:34:56.789: x\n", {}},
    {"four_digit_milliseconds", "4,11,3,-;\\x0a(process:345): GLib-CRITICAL **: 12:34:56.7890: x\n", {}},
    {"assert_block_without_any_break", "3,9,1,-;User space assert from p ASSERT Executing x\n", {}},
    {"assert_block_without_expression", "3,9,1,-;User space assert from p\\x0afile.c:10\\x0aBacktrace\n", {}},
    {"assert_block_expression_not_at_segment_start",
     "3,9,1,-;User space assert from p\\x0afile.c:10 ASSERT Executing x\\x0a\n", {}},
    {"matching_does_not_cross_lines", "6,1,1,-;User space assert from p\\x0a\nASSERT Executing x\n",
     {{"assert", "x"}}},
};
INSTANTIATE_TEST_SUITE_P(LineShapes, ClassifyKernelLogTest, ::testing::ValuesIn(kLineShapes), CaseName);

TEST(ClassifyKernelLogStreamTest, StreamThatNeverOpenedYieldsNothing)
{
    std::ifstream missing("/nonexistent/lastkmsg", std::ios::binary);
    EXPECT_TRUE(ClassifyKernelLog(missing).empty());
}

} // namespace
