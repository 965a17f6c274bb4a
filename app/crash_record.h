#pragma once

#include "app/crash_info.h"

// Decides whether the previous run of the device crashed; returns the record
// to dump, or an empty one when no dump is due.
CrashInfo BuildCrashRecord();
