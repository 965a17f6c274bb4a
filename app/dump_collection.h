#pragma once

#include <string>

#include "app/crash_info.h"

// Packs the record, the kernel's core image (when it kept one), the kernel
// ring buffer and the preserved kernel log into a bzip2 tar archive at
// archive_path, through a staging directory that is removed afterwards, and
// syncs it. When packing fails (the staging area or the archive's storage
// full, a write error) and there was a core, the dump is packed again without
// it, its size in bytes under "core_dropped". Returns the record as the
// archive's info member holds it.
// Throws ErrnoException when the staging directory cannot be made (a leftover
// one included) or the record not staged, std::runtime_error when not even
// the dump without the core could be packed (no partial archive is left), and
// the spawner's exceptions when the packing shell cannot run or is killed.
CrashInfo CollectDump(const CrashInfo& info, const std::string& archive_path);

// The shell script that fills the staging directory and packs it into the
// archive at archive_path, with or without the core image.
std::string DumpScript(const std::string& archive_path, bool with_core);
