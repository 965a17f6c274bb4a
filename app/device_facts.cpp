#include "app/device_facts.h"

void AddDeviceFacts(CrashInfo& /*record*/)
{
}
