#include "app/crash_record.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>

#include <fmt/format.h>

#include "app/core_image.h"
#include "app/device_facts.h"
#include "app/dump_trigger.h"
#include "app/kernel_log_classifier.h"
#include "app/panic_flag.h"
#include "app/paths.h"
#include "app/reset_causes.h"
#include "hardware/device_tree.h"
#include "platform/print.h"

namespace {

// Boot loaders that do not record the reset causes leave the property out;
// that is normal and costs nothing but the reset facts.
uint32_t ReadResetCauses()
{
    try {
        return DeviceTree::ReadU32Property(paths::kResetCauses);
    } catch (const std::exception&) {
        return 0;
    }
}

// Cheapest evidence first; the core device is only consulted when the reset
// causes alone do not already say that the device crashed.
bool DumpIsDue(uint32_t reset_causes)
{
    return (reset_causes & kCrashWorthyResetCauses) != 0 || CoreImageKept() || PanicFlagSet()
        || ReadDumpTrigger() != 0;
}

// A missing log leaves the stream failed, which the classification reads as
// an empty log.
CrashInfo ClassifyPreservedLog()
{
    std::ifstream log(paths::kPreservedKernelLog, std::ios::in | std::ios::binary);
    return ClassifyKernelLog(log);
}

void AddResetKeys(CrashInfo& record, uint32_t reset_causes)
{
    record["type"] = "post-mortem";
    record["reset"] = PrimaryResetCause(reset_causes);
    record["reset_flags"] = ResetFlagsText(reset_causes);
    record["reset_flag_strings"] = fmt::format("{}", fmt::join(ResetCauseNames(reset_causes), ","));
}

} // namespace

CrashInfo BuildCrashRecord()
{
    const uint32_t reset_causes = ReadResetCauses();
    tessel::print(stderr, "Reset causes: 0x{:x} {}\n", reset_causes, fmt::join(ResetCauseNames(reset_causes), ", "));

    if (!DumpIsDue(reset_causes))
        return {};

    CrashInfo record = ClassifyPreservedLog();
    AddDeviceFacts(record);
    AddResetKeys(record, reset_causes);
    // Read again rather than remembered: the decision above may not have
    // reached the trigger at all.
    if (const uint32_t trigger = ReadDumpTrigger(); trigger != 0)
        record["triggered"] = fmt::format("{}", trigger);
    return record;
}
