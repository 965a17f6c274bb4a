#pragma once

// Whether the kernel panicked before the reboot. Never throws: a flag that
// cannot be read is reported and counts as not set.
bool PanicFlagSet();
