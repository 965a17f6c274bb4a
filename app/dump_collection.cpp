#include "app/dump_collection.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include <boost/filesystem/operations.hpp>

#include "app/core_image.h"
#include "app/info_file.h"
#include "app/paths.h"
#include "app/ready_marker.h"
#include "platform/errno_exception.h"
#include "platform/print.h"
#include "platform/spawn_process.h"

namespace {

// The core image is copied through a shell redirection because the kernel's
// core device is a character device: tar would store it as a device node.
// An empty copy means the kernel kept no core, and is dropped from the archive.
// Each copy into the staging directory is written by a cat of its own, whose
// status is the pipeline's: a copy that cannot be written (the staging area
// full, an I/O error) fails the script, while a source that is missing or
// unreadable still leaves an empty or short member, as the kernel left it.
// tar's status, last, is the archive's.
constexpr const char* kEnterStaging = "cd /var/run/crash-dump/new || exit 1; ";
constexpr const char* kCopyCore =
    "cat < /dev/ltcore | cat > ltcore || exit 1; if [ ! -s ltcore ]; then rm -f ltcore; fi; ";
constexpr const char* kCopyLogs =
    "dmesg -s131072 | cat > dmesg || exit 1;cat < /dev/lastkmsg | cat > lastkmsg || exit 1;";

void RemoveStagingDirectory()
{
    try {
        boost::filesystem::remove_all(paths::kStagingDirectory);
    } catch (const std::exception& e) {
        tessel::print(stderr, "Failed to clean up after generating crash dump: {}\n", e.what());
    }
}

// One pass: stages the record, packs the staging directory into the archive
// and removes it again. Returns the dump script's exit code.
int Pack(const CrashInfo& info, const std::string& archive_path, bool with_core)
{
    // An existing directory is an error too: it is what an interrupted run
    // left behind, and its content would end up in this dump.
    if (mkdir(paths::kStagingDirectory, 0700) != 0)
        throw ErrnoException(errno, paths::kStagingDirectory);
    try {
        WriteInfoFile(info, paths::kStagedInfo);
    } catch (const ErrnoException&) {
        RemoveStagingDirectory();
        throw;
    }
    // From here on the earlier dump is rewritten: it is no longer handed off.
    WithdrawReadyMarker();

    SpawnProcess shell;
    shell.m_program = "/bin/sh";
    shell.m_args = {"-c", DumpScript(archive_path, with_core)};
    shell.Execute(0);
    const int status = shell.Wait();
    RemoveStagingDirectory();
    return status;
}

} // namespace

std::string DumpScript(const std::string& archive_path, bool with_core)
{
    // The archive path goes between the quotes as it is, unescaped.
    return std::string(kEnterStaging) + (with_core ? kCopyCore : "") + kCopyLogs + "tar -cjf '" + archive_path
        + "' .";
}

CrashInfo CollectDump(const CrashInfo& info, const std::string& archive_path)
{
    CrashInfo packed = info;
    int status = Pack(packed, archive_path, true);
    const uint64_t core_size = status == 0 ? 0 : CoreImageSize();
    if (core_size > 0) {
        // The core is most of a dump, the record and the kernel logs are the
        // small and most telling rest: they must get through where it does not.
        ::unlink(archive_path.c_str());
        packed["core_dropped"] = std::to_string(core_size);
        status = Pack(packed, archive_path, false);
    }
    if (status != 0) {
        // A truncated archive must not pass for a dump.
        ::unlink(archive_path.c_str());
        throw std::runtime_error(archive_path + ": not written, the dump script failed with status "
                                 + std::to_string(status));
    }
    // The archive must be on the storage before the ready marker says so.
    sync();
    return packed;
}
