#include "device_root.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "app/paths.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

// The device's own directories. The collector's (those of its lock, its
// staging area and its outputs) exist on a device before it runs: the system
// image makes them.
const char* const kDirectories[] = {"/proc", "/sys", "/dev", "/etc", "/tmp", "/usr"};
const char* const kCollectorFiles[] = {paths::kLock, paths::kStagingDirectory, paths::kReadyMarker};

// The host's merged /usr layout, so that "/bin/sh" and the loader resolve.
const char* const kUsrLinks[][2] = {
    {"/bin", "usr/bin"}, {"/sbin", "usr/sbin"}, {"/lib", "usr/lib"}, {"/lib64", "usr/lib64"},
};

std::string Slurp(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

[[noreturn]] void Die(const char* what)
{
    std::fprintf(stderr, "device root: %s: %s\n", what, std::strerror(errno));
    _exit(125);
}

void BindMount(const std::string& source, const std::string& target, bool read_only)
{
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        Die(("bind " + source).c_str());
    if (read_only
        && mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | MS_REC, nullptr) != 0)
        Die(("remount read-only " + target).c_str());
}

// The process's own high-water mark, once it runs the program it was started
// for: until the exec it is a copy of the starting program, whose mark says
// nothing about the program it starts.
long SampleOwnPeak(pid_t pid, const std::string& starter_name)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    long peak = 0;
    while (std::getline(status, line)) {
        if (line.rfind("Name:", 0) == 0 && line.substr(line.find_first_not_of(" \t", 5)) == starter_name)
            return 0;
        if (line.rfind("VmHWM:", 0) == 0)
            peak = std::atol(line.c_str() + 6);
    }
    return peak;
}

// The collector's own /proc entries, from the host: on a device they are
// there, and the memory checker and the sanitizers' runtimes need them (the
// process's maps, its executable, the task list that the leak checker walks).
// Everything else under /proc stays the device's.
void BindOwnProcEntries(const std::string& root)
{
    const std::string own = "/proc/" + std::to_string(getpid());
    for (const std::string& inside : {std::string("/proc/self"), own}) {
        const std::string target = root + inside;
        if (mkdir(target.c_str(), 0555) != 0 && errno != EEXIST)
            Die(("mkdir " + target).c_str());
        BindMount(own, target, true);
    }
}

// Under the memory checker, the collector's run is the checker's: a finding
// makes it exit with the finding status, and its log goes to a file of the
// device, off the collector's standard error.
std::vector<std::string> UnderValgrind(const std::vector<std::string>& argv, const std::string& log_inside)
{
    std::vector<std::string> checked = {
        DeviceRoot::kValgrind,
        "--error-exitcode=" + std::to_string(kToolFindingStatus),
        "--leak-check=full",
        "--show-leak-kinds=definite,indirect,possible",
        "--errors-for-leak-kinds=definite,indirect,possible",
        "--track-fds=yes",
        "--child-silent-after-fork=yes",
        "--vgdb=no",
        "--log-file=" + log_inside,
    };
    checked.insert(checked.end(), argv.begin(), argv.end());
    return checked;
}

// Every descriptor the collector opened is closed by the time it exits. The
// checker lists each other one it finds open at exit ("==pid== Open file
// descriptor 5: /dev/ltcore", "==pid== Open AF_UNIX socket ..."), its own log
// file among them.
bool LeftDescriptorsOpen(const std::string& log, const std::string& log_name)
{
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t text = line.find("== ");
        const bool open = text != std::string::npos && line.compare(text + 3, 5, "Open ") == 0;
        const bool own_log = line.size() > log_name.size()
            && line.compare(line.size() - log_name.size() - 1, std::string::npos, "/" + log_name) == 0;
        if (open && !own_log)
            return true;
    }
    return false;
}

} // namespace

DeviceRoot::DeviceRoot(const Installation& installation, const std::string& kept_root)
    : m_keep_root(!kept_root.empty()),
      m_program(installation.collector),
      m_mtd_driver(installation.mtd_driver)
{
    std::string pattern = (fs::temp_directory_path() / "device-root.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    m_base = pattern;
    m_root = m_keep_root ? fs::absolute(kept_root).lexically_normal().string() : m_base + "/root";

    for (const char* directory : kDirectories)
        MakeDirectory(directory);
    for (const char* file : kCollectorFiles)
        MakeDirectory(fs::path(file).parent_path().string());
    for (const auto& link : kUsrLinks)
        fs::create_directory_symlink(link[1], Path(link[0]));
    fs::permissions(Path("/tmp"), fs::perms::all | fs::perms::sticky_bit);

    // The loader finds the host's libraries through the host's cache.
    fs::copy_file("/etc/ld.so.cache", Path("/etc/ld.so.cache"));

    // The kernel log and the console are plain files here, so that callers can
    // read what the collector and its children wrote to them.
    WriteFile("/dev/kmsg", "");
    WriteFile(paths::kConsole, "");
    WriteFile(kCollector, "", 0755);
    BindHostFile("/dev/null", "/dev/null");
    BindHostFile(paths::kRandom, paths::kRandom);
}

DeviceRoot::~DeviceRoot()
{
    for (const std::string& mount_point : m_tmpfs)
        umount2(mount_point.c_str(), MNT_DETACH);
    std::error_code ignored;
    fs::remove_all(m_base, ignored);
    if (!m_keep_root)
        fs::remove_all(m_root, ignored);
}

std::string DeviceRoot::Path(std::string_view inside) const
{
    return m_root + std::string(inside);
}

void DeviceRoot::WriteFile(std::string_view inside, std::string_view content, mode_t mode) const
{
    const std::string path = Path(inside);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::runtime_error("cannot write " + path);
    fs::permissions(path, static_cast<fs::perms>(mode));
}

std::string DeviceRoot::ReadFile(std::string_view inside) const
{
    if (!Exists(inside))
        throw std::runtime_error("no file " + std::string(inside) + " in the device");
    return Slurp(Path(inside));
}

bool DeviceRoot::Exists(std::string_view inside) const
{
    return fs::exists(fs::symlink_status(Path(inside)));
}

void DeviceRoot::MakeDirectory(std::string_view inside, mode_t mode) const
{
    fs::create_directories(Path(inside));
    fs::permissions(Path(inside), static_cast<fs::perms>(mode));
}

void DeviceRoot::Remove(std::string_view inside) const
{
    fs::remove_all(Path(inside));
}

void DeviceRoot::BindHostFile(std::string_view host_path, std::string_view inside)
{
    UnbindHostFile(inside);
    WriteFile(inside, "");
    m_binds.push_back({std::string(host_path), std::string(inside)});
}

void DeviceRoot::UnbindHostFile(std::string_view inside)
{
    const auto bound = std::find_if(m_binds.begin(), m_binds.end(), [&](const Bind& b) { return b.inside == inside; });
    if (bound != m_binds.end()) {
        m_binds.erase(bound);
        Remove(inside);
    }
}

void DeviceRoot::LoadMtdDriver()
{
    const std::string inside = "/.preload/" + fs::path(m_mtd_driver).filename().string();
    BindHostFile(m_mtd_driver, inside);
    WriteFile("/etc/ld.so.preload", inside + "\n");
}

void DeviceRoot::MountTmpfs(std::string_view inside, size_t bytes)
{
    // Private, so that the mount neither reaches the host's other processes
    // nor outlives this one.
    if (!m_private_mounts) {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), "private mount namespace");
        m_private_mounts = true;
    }
    MakeDirectory(inside);
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (mount("tmpfs", Path(inside).c_str(), "tmpfs", 0, options.c_str()) != 0)
        throw std::system_error(errno, std::generic_category(), "mount tmpfs on " + Path(inside));
    m_tmpfs.push_back(Path(inside));
}

void DeviceRoot::SetResetCauses(uint32_t causes) const
{
    const char cell[4] = {static_cast<char>(causes >> 24), static_cast<char>(causes >> 16),
                          static_cast<char>(causes >> 8), static_cast<char>(causes)};
    WriteFile(std::string("/proc/device-tree/") + paths::kResetCauses, std::string_view(cell, sizeof cell));
}

void DeviceRoot::KillRemainingProcesses() const
{
    struct stat root {};
    if (stat(m_root.c_str(), &root) != 0)
        return;
    // A process's root, followed, is the directory it was chrooted into.
    const auto inside = [&](const fs::directory_entry& process) {
        struct stat its_root {};
        return stat((process.path() / "root").c_str(), &its_root) == 0 && its_root.st_dev == root.st_dev
            && its_root.st_ino == root.st_ino;
    };
    for (int round = 0; round < 500; ++round) {
        bool found = false;
        std::error_code ignored;
        for (const fs::directory_entry& process : fs::directory_iterator("/proc", ignored)) {
            const std::string name = process.path().filename().string();
            if (name.find_first_not_of("0123456789") == std::string::npos && inside(process)) {
                kill(std::stoi(name), SIGKILL);
                found = true;
            }
        }
        if (!found)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

DeviceRoot::Process DeviceRoot::Start(const std::vector<std::string>& argv,
                                      const std::vector<std::string>& tracer) const
{
    // Each run keeps its own output files, so runs may overlap.
    const std::string run = std::to_string(++m_runs);
    const std::string output_directory = m_base + "/run." + run;
    fs::create_directory(output_directory);

    const bool checked = argv.front() == kCollector && m_valgrind;
    const std::string tool_log = checked ? "/tmp/valgrind." + run + ".log" : "";
    std::vector<std::string> command = checked ? UnderValgrind(argv, tool_log) : argv;
    if (!tracer.empty()) {
        command.insert(command.begin(), {"/usr/sbin/chroot", m_root});
        command.insert(command.begin(), tracer.begin(), tracer.end());
    }

    pid_t pid = fork();
    if (pid < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0)
        EnterAndExec(command, tracer.empty(), output_directory);
    return Process(pid, output_directory, checked ? Path(tool_log) : "", m_print_findings);
}

void DeviceRoot::MountDevice() const
{
    BindMount("/usr", Path("/usr"), true);
    BindMount(m_program, Path(kCollector), true);
    for (const Bind& bind : m_binds)
        BindMount(bind.host, Path(bind.inside), false);
    BindOwnProcEntries(m_root);
}

void DeviceRoot::EnterAndExec(const std::vector<std::string>& argv, bool chroot,
                              const std::string& output_directory) const
{
    int null_fd = open("/dev/null", O_RDONLY);
    int out_fd = open((output_directory + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err_fd = open((output_directory + "/stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (null_fd < 0 || out_fd < 0 || err_fd < 0)
        Die("open output files");

    if (setsid() < 0)
        Die("setsid");
    if (unshare(CLONE_NEWNS) != 0)
        Die("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        Die("make mounts private");
    MountDevice();

    if ((chroot && ::chroot(m_root.c_str()) != 0) || chdir(chroot ? "/" : m_root.c_str()) != 0)
        Die("chroot");

    dup2(null_fd, 0);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    closefrom(3);

    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
#ifdef CRASH_DUMP_SANITIZED
    // A sanitizer's finding must not pass for one of the collector's own
    // statuses (AddressSanitizer's default is 1). The fake MTD driver is
    // preloaded ahead of the sanitizer's runtime; it only wraps ioctl and
    // open, which the runtime does not intercept, so the order is harmless.
    char address[] = "ASAN_OPTIONS=exitcode=99:verify_asan_link_order=0";
    char undefined[] = "UBSAN_OPTIONS=exitcode=99:print_stacktrace=1";
    char thread[] = "TSAN_OPTIONS=exitcode=99";
    static_assert(kToolFindingStatus == 99);
    char* environment[] = {path, address, undefined, thread, nullptr};
#else
    char* environment[] = {path, nullptr};
#endif
    execve(args[0], args.data(), environment);
    Die("execve");
}

DeviceRoot::Process::Process(pid_t pid, std::string output_directory, std::string tool_log, bool print_findings)
    : m_pid(pid),
      m_output_directory(std::move(output_directory)),
      m_tool_log(std::move(tool_log)),
      m_print_findings(print_findings),
      m_started(std::chrono::steady_clock::now())
{
}

DeviceRoot::Process::~Process()
{
    if (m_pid > 0) {
        Kill(SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void DeviceRoot::Process::Kill(int signal) const
{
    // Once waited for, the id may be anyone's; 0 would be our own group.
    if (m_pid <= 0)
        return;
    // The session's process group has the leader's id; the leader itself may
    // not have called setsid yet.
    kill(-m_pid, signal);
    kill(m_pid, signal);
}

RunResult DeviceRoot::Process::Wait(std::chrono::seconds timeout)
{
    RunResult result;
    int status = 0;
    struct rusage usage {};
    const auto deadline = m_started + timeout;
    const std::string comm = Slurp("/proc/self/comm");
    const std::string starter_name = comm.substr(0, comm.find('\n'));
    for (;;) {
        result.own_peak_kib = std::max(result.own_peak_kib, SampleOwnPeak(m_pid, starter_name));
        pid_t done = wait4(m_pid, &status, WNOHANG, &usage);
        if (done == m_pid)
            break;
        if (done < 0)
            throw std::system_error(errno, std::generic_category(), "wait4");
        if (std::chrono::steady_clock::now() > deadline)
            Kill(SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    m_pid = 0;
    result.wall_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_started).count();
    result.max_rss_kib = usage.ru_maxrss;
    if (WIFEXITED(status))
        result.exit_status = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.standard_error = Slurp(m_output_directory + "/stderr");
    if (!m_tool_log.empty()) {
        result.tool_log = Slurp(m_tool_log);
        fs::remove(m_tool_log);
        if (result.exit_status >= 0 && LeftDescriptorsOpen(result.tool_log, fs::path(m_tool_log).filename()))
            result.exit_status = kToolFindingStatus;
    }
    // Shown with a failing test's output: the finding is the news, not the
    // status the test then trips over.
    if (m_print_findings && result.exit_status == kToolFindingStatus)
        std::fprintf(stderr, "device root: findings of the checked run:\n%s\n",
                     (result.tool_log.empty() ? result.standard_error : result.tool_log).c_str());
    return result;
}

} // namespace sim
