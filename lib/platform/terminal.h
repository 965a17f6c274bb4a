#pragma once

#include <termios.h>

// Terminal attributes of one descriptor, kept across a child that may change
// them (a shell on the serial console leaves raw mode or echo off behind when
// it dies).
class SavedTerminal {
public:
    // Remembers the attributes; a descriptor that is no terminal is not saved.
    void Save(int fd);
    // Puts saved attributes back once pending output has drained; does
    // nothing when nothing was saved.
    void Restore(int fd) const;

private:
    bool m_valid = false;
    termios m_attributes{};
};

// Sets the descriptor up as the device's serial console: 115200 baud, 8N1,
// canonical input with echo. Each failure is reported on stderr and leaves the
// rest of the set-up undone; none of them stops the caller.
void ConfigureSerialConsole(int fd);
