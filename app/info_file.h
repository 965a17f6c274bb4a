#pragma once

#include <string>

#include "app/crash_info.h"

// Writes one "key=value\n" line per entry, in key order, unescaped, and syncs
// the file: an uploader may read it as soon as the ready marker stands. On any
// failure (the storage full, a write error, a directory in the way) it leaves
// no partial file behind and throws ErrnoException naming the path.
void WriteInfoFile(const CrashInfo& info, const std::string& path);
