#pragma once

// The collector's fixed paths inside the device and the final lines of its
// runs, as the system tests expect them. Written out here rather than taken
// from the program, so that a changed path or message fails the tests.
namespace sandbox::device_files {

// What the previous run of the device left behind.
constexpr const char* kResetCauses = "/proc/device-tree/lumora/bootloader/imx-reset-cause";
constexpr const char* kCoreImage = "/dev/ltcore";
constexpr const char* kPanicFlag = "/proc/panic_flag";
constexpr const char* kTrigger = "/sys/class/mem/lastkmsg/trigger_dump";
constexpr const char* kKernelLog = "/dev/lastkmsg";

// The completion lock, before and after its rename.
constexpr const char* kLockTemporary = "/var/lock/crash-dump-complete.tmp";
constexpr const char* kLock = "/var/lock/crash-dump-complete";

// What a dump writes.
constexpr const char* kStaging = "/var/run/crash-dump/new";
constexpr const char* kOutputDirectory = "/var/lib/lumora/crash-dump";
constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfoFile = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kReadyMarker = "/var/lib/lumora/crash-dump/crash-dump.ready";

// The last line of every run that did not end in an exception.
constexpr const char* kDump = "Post-mortem crash dump generated.\n";
constexpr const char* kNoDump = "No post-mortem crash dump available.\n";

} // namespace sandbox::device_files
