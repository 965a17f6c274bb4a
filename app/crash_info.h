#pragma once

#include <map>
#include <string>

// What a dump says about the crash and the device: key to value, in byte-wise
// key order. An empty record means that no dump is due.
using CrashInfo = std::map<std::string, std::string>;
