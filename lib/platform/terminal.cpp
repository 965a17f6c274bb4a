#include "platform/terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/print.h"

void SavedTerminal::Save(int fd)
{
    m_valid = tcgetattr(fd, &m_attributes) == 0;
}

void SavedTerminal::Restore(int fd) const
{
    if (m_valid)
        tcsetattr(fd, TCSADRAIN, &m_attributes);
}

void ConfigureSerialConsole(int fd)
{
    termios attributes{};
    if (tcgetattr(fd, &attributes) != 0) {
        tessel::print(stderr, "Failed to get serial configuration: {}\n", std::strerror(errno));
        return;
    }
    attributes.c_iflag = BRKINT | ICRNL | IMAXBEL;
    attributes.c_oflag = OPOST | ONLCR;
    attributes.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB);
    attributes.c_cflag |= CS8;
    attributes.c_lflag |= ICANON | ECHO | IEXTEN;
    if (cfsetispeed(&attributes, B115200) != 0) {
        tessel::print(stderr, "Failed to set serial ispeed: {}\n", std::strerror(errno));
        return;
    }
    if (cfsetospeed(&attributes, B115200) != 0) {
        tessel::print(stderr, "Failed to set serial ospeed: {}\n", std::strerror(errno));
        return;
    }
    if (tcsetattr(fd, TCSADRAIN, &attributes) != 0)
        tessel::print(stderr, "Failed to configure serial port: {}\n", std::strerror(errno));
}
