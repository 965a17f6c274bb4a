#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <termios.h>

#include "platform/terminal.h"
#include "platform/unique_fd.h"

namespace {

// The console line runs at 115200 baud, 8 bits, with the usual line
// discipline; a stream that is no terminal is named in a message and left as
// it is.
TEST(SerialConsoleTest, SetsTheLineUpOrSaysWhyNot)
{
    int controller = -1, terminal = -1;
    ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    const tessel::UniqueFd own_controller(controller), own_terminal(terminal);
    const tessel::UniqueFd null(open("/dev/null", O_RDONLY));
    testing::internal::CaptureStderr();
    ConfigureSerialConsole(terminal);
    ConfigureSerialConsole(null.get());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to get serial configuration: Inappropriate ioctl for device\n");

    termios attributes{};
    ASSERT_EQ(tcgetattr(terminal, &attributes), 0);
    EXPECT_EQ(attributes.c_iflag, static_cast<tcflag_t>(BRKINT | ICRNL | IMAXBEL));
    EXPECT_EQ(attributes.c_cflag & (CSIZE | CSTOPB | PARENB), static_cast<tcflag_t>(CS8));
    EXPECT_EQ(cfgetispeed(&attributes), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&attributes), static_cast<speed_t>(B115200));
}

} // namespace
