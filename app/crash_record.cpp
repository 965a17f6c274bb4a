#include "app/crash_record.h"

CrashInfo BuildCrashRecord()
{
    return {};
}
