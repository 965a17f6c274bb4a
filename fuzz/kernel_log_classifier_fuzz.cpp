// The preserved kernel log holds whatever the crashed programs printed: any
// bytes, any line lengths, records cut off by the reset. Besides surviving
// it, the classification must keep these promises for every input:
//  - lines are independent: a log classifies as its two halves would,
//    combined by the keys' store modes;
//  - an "assert" value is printable text of the log.

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

#include "app/kernel_log_classifier.h"
#include "fuzz_target.h"

namespace {

CrashInfo Classify(std::string_view text)
{
    std::istringstream log{std::string(text)};
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

} // namespace

void FuzzOne(std::string_view text)
{
    const CrashInfo whole = Classify(text);
    // The line end nearest the middle, so both halves are whole lines.
    const size_t end = text.find('\n', text.size() / 2);
    const size_t split = end == std::string_view::npos ? text.size() : end + 1;
    fuzz::Require(Combine(Classify(text.substr(0, split)), Classify(text.substr(split))) == whole);
    if (const auto assertion = whole.find("assert"); assertion != whole.end()) {
        const std::string& value = assertion->second;
        fuzz::Require(std::all_of(value.begin(), value.end(), [](char c) { return c >= '\x20' && c <= '\x7e'; })
                      && text.find(value) != std::string_view::npos);
    }
}
