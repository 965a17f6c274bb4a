#pragma once

#include <cstdio>
#include <exception>
#include <utility>

#include <fmt/format.h>

namespace tessel {

// Every diagnostic of the program goes through here. A message that fails to
// format or to reach the stream must not take the program down with it, so the
// failure is reported in its place; only if that report fails too does the
// exception escape.
template <typename... Args>
void print(std::FILE* stream, fmt::format_string<Args...> format, Args&&... args)
{
    try {
        fmt::print(stream, format, std::forward<Args>(args)...);
    } catch (const std::exception& e) {
        fmt::print(stream, "Message '{}' threw '{}'\n", fmt::string_view(format), e.what());
    }
}

} // namespace tessel
