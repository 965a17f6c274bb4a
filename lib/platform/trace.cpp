#include "platform/trace.h"

#include <termios.h>

#include <cstdio>

StderrTrace::~StderrTrace()
{
    Flush();
}

void StderrTrace::Write(const char* text)
{
    std::fputs(text, stderr);
}

void StderrTrace::Flush()
{
    std::fflush(stderr);
    tcdrain(fileno(stderr));
}
