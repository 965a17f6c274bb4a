#pragma once

#include <istream>

#include "app/crash_info.h"

// Reads the kernel log preserved from the previous boot, one line at a time,
// and records what the known crash messages say: "process", "assert",
// "lmplay", "forced", "script_hash", "script_name", "script_runtime_error",
// "script_load_error". Lines are records of the kernel's export format
// ("6,120,5003,-;message"), with every non-printable byte of the message
// already escaped as "\x" and two hex digits. A stream that cannot be read
// yields an empty record.
CrashInfo ClassifyKernelLog(std::istream& log);
