#pragma once

// Every fixed path of the collector, in one place. The program takes no
// options and reads no configuration: these are the device's layout.
namespace paths {

// The completion lock: created under the temporary name, locked, then renamed,
// so that a reader who finds the final name and asks for a lock waits for the
// collector to finish.
constexpr const char* kLockTemporary = "/var/lock/crash-dump-complete.tmp";
constexpr const char* kLock = "/var/lock/crash-dump-complete";

// The three outputs, written in this order; the empty ready marker last means
// the other two are complete.
constexpr const char* kOutputDirectory = "/var/lib/lumora/crash-dump";
constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfoFile = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kReadyMarker = "/var/lib/lumora/crash-dump/crash-dump.ready";

// What the previous run left behind. The reset causes are a device-tree
// property, relative to the tree's root.
constexpr const char* kResetCauses = "lumora/bootloader/imx-reset-cause";
constexpr const char* kCoreImage = "/dev/ltcore";
constexpr const char* kPanicFlag = "/proc/panic_flag";
constexpr const char* kDumpTrigger = "/sys/class/mem/lastkmsg/trigger_dump";
constexpr const char* kPreservedKernelLog = "/dev/lastkmsg";

// Where the archive's members are gathered; it lives only while the dump is
// packed. Its parent is made by the system image.
constexpr const char* kStagingDirectory = "/var/run/crash-dump/new";
constexpr const char* kStagedInfo = "/var/run/crash-dump/new/info";

// What the device says about itself in a dump: the running system's version
// and image name, the console, the UBI volumes and the randomness for the
// dump's salt.
constexpr const char* kSystemVersion = "/etc/lumora-version";
constexpr const char* kImageName = "/etc/lumora-image-name";
constexpr const char* kConsole = "/dev/console";
constexpr const char* kUbiDevice = "/sys/class/ubi/ubi0";
constexpr const char* kRandom = "/dev/urandom";

} // namespace paths
