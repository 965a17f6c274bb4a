#pragma once

#include <string>

// The whole file without the blanks, tabs, line feeds, vertical tabs and
// carriage returns around it: one-line files under /etc and /sys end in a line
// feed that is no part of the value. Throws ErrnoException naming the path.
std::string ReadTrimmedFile(const std::string& path);
