#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// What the kernel's board file ("/proc/boardid") says about the board: one
// "Key: value" pair per line.
struct BoardIdentity {
    uint32_t board_id = 0xFFFFFFFF;
    std::string family;
    std::string bootloader_version;
    std::string soc;
    bool secure_keys = true;
    bool secure_boot = true;
    std::string secure_id;
};

// Reads pairs until end of file; unknown keys are ignored, and for a key
// given twice the later value wins.
BoardIdentity ScanBoardId(std::FILE* file);

// The same over a file; a file that cannot be opened leaves the defaults.
BoardIdentity ReadBoardId(const std::string& path);
