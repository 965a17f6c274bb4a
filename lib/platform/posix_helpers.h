#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>

// Reads up to length bytes, retrying short reads; stops early only at end of
// file. Returns the number of bytes read.
size_t read_all_throw(int fd, void* buffer, size_t length);

// Writes the whole buffer, retrying short writes.
void write_all_throw(int fd, const void* buffer, size_t length);

// Writes a file in place (no temporary, no rename) and syncs it, so that
// whoever sees the file sees its whole content.
void WriteFile(const std::string& path, const void* data, size_t length, mode_t mode);

// The whole content of a file; kernel files under /proc and /sys report no
// size, so it reads until end of file. Throws ErrnoException naming the path.
std::string ReadWholeFile(const std::string& path);

// Natural version order: runs of digits compare as numbers. Returns -1, 0 or 1.
int CompareVersions(const std::string& a, const std::string& b);

// Receives the calling thread's CPU set; returns true to apply the changed set.
using AdjustCpuSet = std::function<bool(cpu_set_t&)>;

void ConfigureCpuSet(AdjustCpuSet adjust);
