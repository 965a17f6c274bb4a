#pragma once

#include <string>

#include "app/crash_info.h"

// Packs the record, the kernel's core image (when it kept one), the kernel
// ring buffer and the preserved kernel log into a bzip2 tar archive at
// archive_path, through a staging directory that is removed afterwards.
// Throws ErrnoException when the staging directory cannot be made (a leftover
// one included), and the spawner's exceptions when the packing shell cannot
// run or is killed; a script that fails part way still counts as collected.
void CollectDump(const CrashInfo& info, const std::string& archive_path);

// The shell script that fills the staging directory and packs it into the
// archive at archive_path.
std::string DumpScript(const std::string& archive_path);
