#pragma once

#include "command_line.h"

namespace sim {

// Write a flash image to standard output, for people writing scenarios and
// for the emulated board's flash:
//   make-env  a boot loader environment filling one erase block
//   make-fit  a rescue kernel FIT image, plain or gzip-compressed
// Both return an exit status.
int MakeEnvironmentImage(const Options& options);
int MakeFitImage(const Options& options);

} // namespace sim
