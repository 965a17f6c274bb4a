// The preserved kernel log holds whatever the crashed programs printed: any
// bytes, any line lengths, records cut off by the reset. Besides surviving
// it, the classification must keep these promises for every input:
//  - it depends only on the bytes, not on how the device hands them over;
//  - lines are independent: a log classifies as its two halves would,
//    combined by the keys' store modes;
//  - every key but "assert" is what a plain reading of the simple patterns
//    (a literal right after the header, then a capture) gives;
//  - an "assert" value is printable text of the log.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>

#include "app/kernel_log_classifier.h"

namespace {

// Serves the text a few bytes per read, as a slow character device does, so
// that lines arrive split across buffer refills.
class TrickleBuffer : public std::streambuf {
public:
    TrickleBuffer(std::string_view text, size_t piece) : m_text(text), m_piece(piece) {}

protected:
    int_type underflow() override
    {
        if (m_at >= m_text.size())
            return traits_type::eof();
        char* start = const_cast<char*>(m_text.data()) + m_at;
        const size_t length = std::min(m_piece, m_text.size() - m_at);
        setg(start, start, start + length);
        m_at += length;
        return traits_type::to_int_type(*start);
    }

private:
    std::string_view m_text;
    size_t m_piece;
    size_t m_at = 0;
};

CrashInfo Classify(std::string_view text)
{
    std::istringstream log{std::string(text)};
    return ClassifyKernelLog(log);
}

CrashInfo ClassifyTrickled(std::string_view text, size_t piece)
{
    TrickleBuffer buffer(text, piece);
    std::istream log(&buffer);
    return ClassifyKernelLog(log);
}

// The record of the first half, updated by the second as the store modes say.
CrashInfo Combine(CrashInfo first, const CrashInfo& second)
{
    static const std::set<std::string> kFirstWins = {"assert", "script_runtime_error", "script_load_error"};
    for (const auto& [key, value] : second) {
        if (kFirstWins.count(key) != 0)
            first.emplace(key, value);
        else
            first[key] = value;
    }
    return first;
}

bool IsPrintable(char c)
{
    return c >= '\x20' && c <= '\x7e';
}

constexpr std::string_view kBareAssertion = "ASSERT Executing ";
constexpr std::string_view kForced = "Requesting crash at web user request.";

struct SimplePattern {
    std::string_view literal;
    const char* key;
    bool first_wins;
    bool stops_at_space; // a word rather than the rest of the line
};

const SimplePattern kSimplePatterns[] = {
    {"Process ", "process", false, true},
    {"LMPLAY: ", "lmplay", false, false},
    {"ScriptHash: ", "script_hash", false, false},
    {"ScriptName: ", "script_name", false, false},
    {"ScriptRuntimeError: ", "script_runtime_error", true, false},
    {"ScriptLoadError: ", "script_load_error", true, false},
};

// One line as the simple patterns read it. The header is at least one byte up
// to the first ";". A bare assertion at the start of the line takes the line
// for itself, unless the process pattern, tried before it, matches.
void ReadSimplePatterns(std::string_view line, CrashInfo& expected)
{
    const size_t header_end = line.find(';');
    if (header_end == std::string_view::npos || header_end == 0)
        return;
    const std::string_view message = line.substr(header_end + 1);
    const bool bare_assertion = line.substr(0, kBareAssertion.size()) == kBareAssertion;
    for (const SimplePattern& pattern : kSimplePatterns) {
        if (message.substr(0, pattern.literal.size()) != pattern.literal)
            continue;
        if (bare_assertion && pattern.key != std::string_view("process"))
            return;
        std::string_view capture = message.substr(pattern.literal.size());
        const auto end = std::find_if(capture.begin(), capture.end(), [&](char c) {
            return !IsPrintable(c) || (pattern.stops_at_space && c == ' ');
        });
        capture = capture.substr(0, static_cast<size_t>(end - capture.begin()));
        if (pattern.first_wins)
            expected.emplace(pattern.key, capture);
        else
            expected[pattern.key] = capture;
        return;
    }
    if (!bare_assertion && message.substr(0, kForced.size()) == kForced)
        expected["forced"] = "1";
}

// Lines as a line-by-line reader sees them: a final line without a line end
// counts, an empty remainder after the last line end does not.
CrashInfo SimplePatternKeys(std::string_view text)
{
    CrashInfo expected;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        ReadSimplePatterns(text.substr(0, end), expected);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return expected;
}

// The line end nearest the middle, so both halves are whole lines.
size_t SplitPoint(std::string_view text)
{
    const size_t end = text.find('\n', text.size() / 2);
    return end == std::string_view::npos ? text.size() : end + 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const CrashInfo whole = Classify(text);

    // Piece sizes from 1 to 13, varying with the input rather than fixed.
    if (ClassifyTrickled(text, 1 + size % 13) != whole)
        std::abort();

    const size_t split = SplitPoint(text);
    if (Combine(Classify(text.substr(0, split)), Classify(text.substr(split))) != whole)
        std::abort();

    CrashInfo others = whole;
    const auto assertion = others.find("assert");
    if (assertion != others.end()) {
        const std::string& value = assertion->second;
        if (!std::all_of(value.begin(), value.end(), IsPrintable) || text.find(value) == std::string_view::npos)
            std::abort();
        others.erase(assertion);
    }
    if (others != SimplePatternKeys(text))
        std::abort();
    return 0;
}
