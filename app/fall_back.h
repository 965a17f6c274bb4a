#pragma once

#include <cstdio>
#include <exception>

#include "platform/print.h"

// Calls `call`; if it throws, prints one line, `failure` with the exception's
// text or `unknown` for anything that is no std::exception, and returns
// `fallback` instead. For the facts that are only nice to have, whose failure
// must never cost a dump, and for the entry point.
template <typename T, typename Call>
T CallOrFallBack(T fallback, fmt::format_string<const char*> failure, fmt::format_string<> unknown, Call&& call)
{
    try {
        return call();
    } catch (const std::exception& e) {
        tessel::print(stderr, failure, e.what());
    } catch (...) {
        tessel::print(stderr, unknown);
    }
    return fallback;
}
