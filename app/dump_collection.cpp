#include "app/dump_collection.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>

#include <boost/filesystem/operations.hpp>
#include <fmt/format.h>

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
// The archive path goes between the quotes as it is, unescaped.
constexpr const char* kDumpScript =
    "cd /var/run/crash-dump/new || exit 1; cat < /dev/ltcore > ltcore; if [ ! -s ltcore ]; then rm -f ltcore; fi; "
    "dmesg -s131072 > dmesg;cat < /dev/lastkmsg > lastkmsg;tar -cjf '{}' .";

void PackStagingDirectory(const std::string& archive_path)
{
    SpawnProcess shell;
    shell.m_program = "/bin/sh";
    shell.m_args = {"-c", DumpScript(archive_path)};
    shell.Execute(0);
    // The exit code is ignored on purpose: whatever the script managed to
    // pack is worth more than no dump.
    shell.Wait();
}

void RemoveStagingDirectory()
{
    try {
        boost::filesystem::remove_all(paths::kStagingDirectory);
    } catch (const std::exception& e) {
        tessel::print(stderr, "Failed to clean up after generating crash dump: {}\n", e.what());
    }
}

} // namespace

std::string DumpScript(const std::string& archive_path)
{
    return fmt::format(kDumpScript, archive_path);
}

void CollectDump(const CrashInfo& info, const std::string& archive_path)
{
    // An existing directory is an error too: it is what an interrupted run
    // left behind, and its content would end up in this dump.
    if (mkdir(paths::kStagingDirectory, 0700) != 0)
        throw ErrnoException(errno, paths::kStagingDirectory);
    WriteInfoFile(info, paths::kStagedInfo);
    // From here on the earlier dump is rewritten: it is no longer handed off.
    WithdrawReadyMarker();
    PackStagingDirectory(archive_path);
    RemoveStagingDirectory();
    // The archive must be on the storage before the ready marker says so.
    sync();
}
