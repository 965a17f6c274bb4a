#pragma once

#include <string>

#include "app/crash_info.h"

// Writes one "key=value\n" line per entry, in key order, unescaped. Silent on
// every failure: a missing info file must never cost the dump itself.
void WriteInfoFile(const CrashInfo& info, const std::string& path);
