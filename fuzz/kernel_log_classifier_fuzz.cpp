// The preserved kernel log holds whatever the crashed programs printed: any
// bytes, any line lengths, records cut off by the reset. Besides surviving
// it, the classification must keep these promises for every input:
//  - it depends only on the bytes, not on how the device hands them over;
//  - lines are independent: a log classifies as its two halves would,
//    combined by the keys' store modes;
//  - an "assert" value is printable text of the log.

#include <algorithm>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>

#include "app/kernel_log_classifier.h"
#include "fuzz_target.h"

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

// The line end nearest the middle, so both halves are whole lines.
size_t SplitPoint(std::string_view text)
{
    const size_t end = text.find('\n', text.size() / 2);
    return end == std::string_view::npos ? text.size() : end + 1;
}

} // namespace

void FuzzOne(std::string_view text)
{
    const CrashInfo whole = Classify(text);
    // Piece sizes from 1 to 13, varying with the input rather than fixed.
    fuzz::Require(ClassifyTrickled(text, 1 + text.size() % 13) == whole);
    const size_t split = SplitPoint(text);
    fuzz::Require(Combine(Classify(text.substr(0, split)), Classify(text.substr(split))) == whole);
    if (const auto assertion = whole.find("assert"); assertion != whole.end()) {
        const std::string& value = assertion->second;
        fuzz::Require(std::all_of(value.begin(), value.end(), IsPrintable)
                      && text.find(value) != std::string_view::npos);
    }
}
