#pragma once

// Whether the kernel kept a core image of the previous run. Throws
// ErrnoException when the core device cannot be opened, which ends the run.
bool CoreImageKept();
