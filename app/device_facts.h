#pragma once

#include "app/crash_info.h"

// Adds the device's identity to a crash record.
void AddDeviceFacts(CrashInfo& record);
