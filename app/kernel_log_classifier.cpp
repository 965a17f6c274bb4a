#include "app/kernel_log_classifier.h"

#include <string>
#include <string_view>

// Only the parts of Qi in use: the whole of it brings <iostream>, whose
// stream set-up every start of the program would pay for, every boot.
#include <boost/spirit/include/qi_action.hpp>
#include <boost/spirit/include/qi_char.hpp>
#include <boost/spirit/include/qi_directive.hpp>
#include <boost/spirit/include/qi_operator.hpp>
#include <boost/spirit/include/qi_parse.hpp>
#include <boost/spirit/include/qi_rule.hpp>
#include <boost/spirit/include/qi_string.hpp>

namespace qi = boost::spirit::qi;

namespace {

using Iterator = std::string::const_iterator;
using Rule = qi::rule<Iterator>;
using TextRule = qi::rule<Iterator, std::string()>;

// What the patterns start with: the bare assertion at the start of the line,
// every other one right after the record header.
constexpr const char* kAssertExecuting = "ASSERT Executing ";
constexpr const char* kProcess = "Process ";
constexpr const char* kAssertFrom = "User space assert from ";
constexpr const char* kGLibNetError = "**\\x0aGLib-Net:ERROR:";
constexpr const char* kGLibCritical = "\\x0a(process:";
constexpr const char* kPlayer = "LMPLAY: ";
constexpr const char* kForced = "Requesting crash at web user request.";
constexpr const char* kScriptHash = "ScriptHash: ";
constexpr const char* kScriptName = "ScriptName: ";
constexpr const char* kScriptRuntimeError = "ScriptRuntimeError: ";
constexpr const char* kScriptLoadError = "ScriptLoadError: ";

constexpr const char* kMessageStarts[] = {
    kProcess, kAssertFrom, kGLibNetError, kGLibCritical, kPlayer, kForced,
    kScriptHash, kScriptName, kScriptRuntimeError, kScriptLoadError,
};

// Nearly every line of a log is no crash report, and trying the patterns on
// it would scan its header once per pattern. A pattern can only match a line
// that starts with the bare assertion, or whose message (after a header of at
// least one character up to the first ";") starts with one of the message
// literals; a pattern that fails stores nothing. So passing over all other
// lines gives exactly the same record.
bool MayMatch(std::string_view line)
{
    auto starts_with = [](std::string_view text, std::string_view prefix) {
        return text.substr(0, prefix.size()) == prefix;
    };
    if (starts_with(line, kAssertExecuting))
        return true;
    const size_t header_end = line.find(';');
    if (header_end == std::string_view::npos || header_end == 0)
        return false;
    const std::string_view message = line.substr(header_end + 1);
    for (const char* start : kMessageStarts) {
        if (starts_with(message, start))
            return true;
    }
    return false;
}

// Store modes. An action sits at the end of its pattern, so a pattern that
// fails part-way stores nothing.

// The latest report is the one that describes the crash.
struct StoreLast {
    CrashInfo& info;
    const char* key;
    void operator()(const std::string& value, qi::unused_type, qi::unused_type) const { info[key] = value; }
};

// The earliest report is the cause; what follows is usually its fallout.
struct StoreFirst {
    CrashInfo& info;
    const char* key;
    void operator()(const std::string& value, qi::unused_type, qi::unused_type) const { info.emplace(key, value); }
};

struct StoreFlag {
    CrashInfo& info;
    const char* key;
    void operator()(qi::unused_type, qi::unused_type, qi::unused_type) const { info[key] = "1"; }
};

// The rules for one classification. They refer to each other, to the header
// and to the record by address, so they stay where they were built and die
// together.
class KernelLogRules {
public:
    KernelLogRules(const Rule& header, CrashInfo& info);
    KernelLogRules(const KernelLogRules&) = delete;
    KernelLogRules& operator=(const KernelLogRules&) = delete;

    // Tries the patterns on one line, anchored at its start; what follows a
    // match is ignored.
    void Match(const std::string& line) const;

private:
    void BuildBlocks();
    void BuildPatterns(const Rule& header, CrashInfo& info);

    // Building blocks. Character classes are those of the "C" locale, spelled
    // as byte ranges so that neither the locale nor the signedness of char
    // changes them.
    TextRule m_rest;       // printable characters: 0x20 to 0x7e
    TextRule m_word;       // printable characters that are not white space
    TextRule m_hex;        // no pattern needs hex digits at present
    Rule m_escaped_break;  // an inner line break, as the kernel escapes it
    Rule m_skip_line;      // through the next escaped break
    TextRule m_time_stamp; // GLib's time of day: hh:mm:ss.mmm

    // Patterns, in the order they are tried.
    Rule m_process;
    Rule m_assert_block;
    Rule m_assert_bare;
    Rule m_glib_net_error;
    Rule m_glib_critical;
    Rule m_player;
    Rule m_forced;
    Rule m_script_hash;
    Rule m_script_name;
    Rule m_script_runtime_error;
    Rule m_script_load_error;

    // Two slots of the assertion group that are reserved and never defined;
    // an undefined rule matches nothing.
    Rule m_assert_reserved_1;
    Rule m_assert_reserved_2;

    Rule m_assertions;
    Rule m_scripts;
    Rule m_line;
};

KernelLogRules::KernelLogRules(const Rule& header, CrashInfo& info)
{
    BuildBlocks();
    BuildPatterns(header, info);
}

void KernelLogRules::BuildBlocks()
{
    const auto digit = qi::char_('0', '9');

    m_rest = *qi::char_('\x20', '\x7e');
    m_word = *qi::char_('\x21', '\x7e');
    m_hex = +(digit | qi::char_('a', 'f') | qi::char_('A', 'F'));
    m_escaped_break = qi::lit("\\x0a");
    m_skip_line = *(qi::char_ - m_escaped_break) >> m_escaped_break;
    m_time_stamp = qi::raw[qi::repeat(2)[digit] >> ':' >> qi::repeat(2)[digit] >> ':' >> qi::repeat(2)[digit]
                           >> '.' >> qi::repeat(3)[digit]];
}

void KernelLogRules::BuildPatterns(const Rule& header, CrashInfo& info)
{
    const auto digit = qi::char_('0', '9');

    m_process = (header >> kProcess >> m_word)[StoreLast{info, "process"}];

    // A user-space assertion report spans several escaped lines; the one that
    // starts with "ASSERT Executing " names the failed expression. Its capture
    // runs to the end of the line, which in practice ends the repetition.
    m_assert_block = header >> kAssertFrom >> m_skip_line
                     >> *((kAssertExecuting >> m_rest)[StoreFirst{info, "assert"}] | m_skip_line);
    // The same report written straight to the console, without a record header.
    m_assert_bare = (qi::lit(kAssertExecuting) >> m_rest)[StoreFirst{info, "assert"}];
    m_glib_net_error = (header >> kGLibNetError >> m_rest)[StoreFirst{info, "assert"}];
    m_glib_critical = (header >> kGLibCritical >> qi::omit[*digit] >> "): GLib-CRITICAL **: "
                       >> qi::omit[m_time_stamp] >> ": " >> m_rest)[StoreFirst{info, "assert"}];

    m_player = (header >> kPlayer >> m_rest)[StoreLast{info, "lmplay"}];
    m_forced = (header >> kForced)[StoreFlag{info, "forced"}];

    m_script_hash = (header >> kScriptHash >> m_rest)[StoreLast{info, "script_hash"}];
    m_script_name = (header >> kScriptName >> m_rest)[StoreLast{info, "script_name"}];
    m_script_runtime_error = (header >> kScriptRuntimeError >> m_rest)[StoreFirst{info, "script_runtime_error"}];
    m_script_load_error = (header >> kScriptLoadError >> m_rest)[StoreFirst{info, "script_load_error"}];

    m_assertions = m_assert_block | m_assert_bare | m_glib_net_error | m_glib_critical | m_assert_reserved_1
                   | m_assert_reserved_2;
    m_scripts = m_script_hash | m_script_name | m_script_runtime_error | m_script_load_error;
    m_line = m_process | m_assertions | m_player | m_forced | m_scripts;
}

void KernelLogRules::Match(const std::string& line) const
{
    if (!MayMatch(line))
        return;
    Iterator first = line.begin();
    qi::parse(first, line.end(), m_line);
}

// Reads the log through the rules, one line at a time, however long the log.
void ClassifyLines(std::istream& log, const Rule& header, CrashInfo& info)
{
    const KernelLogRules rules(header, info);
    std::string line;
    while (std::getline(log, line))
        rules.Match(line);
}

} // namespace

CrashInfo ClassifyKernelLog(std::istream& log)
{
    CrashInfo info;
    // The record header: level, sequence number, time stamp and flags, up to
    // the first ";". At least one character, so a line that starts with ";"
    // has no header.
    const Rule header = +~qi::char_(';') >> ';';
    ClassifyLines(log, header, info);
    return info;
}
