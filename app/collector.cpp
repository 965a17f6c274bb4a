#include "app/collector.h"

#include <cstdio>

#include "app/completion_lock.h"
#include "app/crash_record.h"
#include "app/dump_collection.h"
#include "app/fall_back.h"
#include "app/info_file.h"
#include "app/paths.h"
#include "app/ready_marker.h"
#include "hardware/hardware_config.h"
#include "platform/print.h"

namespace {

// Archive, info file, then the empty ready marker: whoever sees the marker may
// rely on the other two being complete, each synced before the next step. A
// step that fails throws, and nothing after it is written. Returns the record
// as both the archive and the info file hold it.
CrashInfo WriteDump(const CrashInfo& record)
{
    CrashInfo packed = CollectDump(record, paths::kArchive);
    WriteInfoFile(packed, paths::kInfoFile);
    SyncInfoFileName();
    PublishReadyMarker();
    return packed;
}

} // namespace

int RunCollector()
{
    return CallOrFallBack(1, "crash-dump caught exception: {}\n", "crash-dump caught exception.\n", [] {
        // First of all, before the lock: a device whose identity cannot be
        // read ends the run without announcing one. Destroyed last.
        HardwareConfig hardware;
        CompletionLock lock;
        const CrashInfo record = BuildCrashRecord();
        if (record.empty()) {
            tessel::print(stderr, "No post-mortem crash dump available.\n");
            return 1;
        }
        const CrashInfo packed = WriteDump(record);
        if (const auto dropped = packed.find("core_dropped"); dropped != packed.end())
            tessel::print(stderr, "Crash dump written without its core image of {} bytes: it could not be stored.\n",
                          dropped->second);
        tessel::print(stderr, "Post-mortem crash dump generated.\n");
        return 0;
    });
}
