#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "installation.h"

namespace sim {

struct RunResult {
    int exit_status = -1;   // the status passed to exit(), or -1 after a signal
    int signal = 0;         // the signal that ended the run, or 0
    std::string standard_error;
    double wall_seconds = 0;
    // Peak resident memory of the process and every child it waited for
    // (the kernel's figure for the whole tree).
    long max_rss_kib = 0;
    // Peak resident memory of the started program alone, sampled from the
    // kernel's high-water mark while it ran; 0 if it ended before a sample.
    long own_peak_kib = 0;
    std::string tool_log;   // the memory checker's log, when the run was checked
};

// Exit status of a run in which the memory checker or a sanitizer found an
// error, a leak or a descriptor left open; distinct from the collector's own
// statuses 0 and 1, so that nobody mistakes a finding for an outcome.
constexpr int kToolFindingStatus = 99;

// A simulated device: a directory tree that becomes "/" for the collector,
// with fake /proc, /sys, /dev, /etc and /var files and the host's /usr bound
// read-only so that the shell and the tools the dump script runs are there.
// Only the program's own entries, /proc/self and /proc/<its pid>, are the
// host's (read-only), as the memory checker and the sanitizers need them.
// The collector runs unmodified inside a private mount namespace and chroot;
// running needs root.
class DeviceRoot {
public:
    // A fresh device in a temporary directory, removed with this object; or,
    // given kept_root (new or empty: the caller checks), a device there that
    // stays for inspection.
    explicit DeviceRoot(const Installation& installation, const std::string& kept_root = "");
    ~DeviceRoot();
    DeviceRoot(const DeviceRoot&) = delete;
    DeviceRoot& operator=(const DeviceRoot&) = delete;

    // Host path of a path inside the device ("/proc/mtd" → ".../root/proc/mtd").
    std::string Path(std::string_view inside) const;

    void WriteFile(std::string_view inside, std::string_view content, mode_t mode = 0644) const;
    std::string ReadFile(std::string_view inside) const;
    bool Exists(std::string_view inside) const;
    void MakeDirectory(std::string_view inside, mode_t mode = 0755) const;
    void Remove(std::string_view inside) const;

    // Undoes the binding of a host file over a path inside the device
    // ("/dev/null" and "/dev/urandom" are bound from the host by default).
    void UnbindHostFile(std::string_view inside);

    // Loads the fake MTD driver into every dynamically linked program of the
    // device, through the dynamic loader's own preload file.
    void LoadMtdDriver();

    // Puts a tmpfs of the given size over a directory of the device, as a
    // small data partition would be. It is mounted in a private mount
    // namespace of the calling process, so that runs write into it and the
    // caller sees what they left; it lasts as long as this object.
    void MountTmpfs(std::string_view inside, size_t bytes);

    // The boot loader's record of the reset causes, a big-endian cell in the
    // device tree.
    void SetResetCauses(uint32_t causes) const;

    // A started program. It leads a session of its own, as a service does
    // on the device, so that it can be killed together with its children.
    class Process {
    public:
        Process(pid_t pid, std::string output_directory, std::string tool_log, bool print_findings);
        // Never moved: Start's result is built in place (C++17).
        Process(Process&&) = delete;
        ~Process();
        // Waits for the collector; after the timeout it is killed and the
        // result shows the signal.
        RunResult Wait(std::chrono::seconds timeout = std::chrono::seconds(120));
        // Sends a signal to the program and everything it started.
        void Kill(int signal) const;
        pid_t Id() const { return m_pid; }

    private:
        pid_t m_pid;
        std::string m_output_directory;
        std::string m_tool_log; // host path of the memory checker's log, or empty
        bool m_print_findings;
        std::chrono::steady_clock::time_point m_started;
    };

    // Starts a program inside the device; by default the collector, which is
    // bound to "/crash-dump" there. argv[0] is a path inside the device.
    // A tracer (a host command line, to which the chroot command and argv are
    // appended) runs in the device's mount namespace but outside its root, so
    // that it sees the host's /proc and the device root under its host path.
    Process Start(const std::vector<std::string>& argv = {kCollector},
                  const std::vector<std::string>& tracer = {}) const;
    RunResult Run(const std::vector<std::string>& argv = {kCollector}) const { return Start(argv).Wait(); }

    static constexpr const char* kCollector = "/crash-dump";
    // The host's memory checker, which runs the collector under --valgrind.
    static constexpr const char* kValgrind = "/usr/bin/valgrind";

    // Kills whatever still runs inside the device: a program that the
    // collector started in a process group of its own outlives the collector
    // killed in its middle. Returns once they are gone.
    void KillRemainingProcesses() const;

    // The collector binary to run; defaults to the installation's.
    void SetProgram(std::string host_program) { m_program = std::move(host_program); }

    // Runs every start of the collector under the memory checker. With
    // print_findings, a run's findings also go to standard error when it
    // ends, beside whatever the caller reports.
    void CheckWithValgrind(bool print_findings)
    {
        m_valgrind = true;
        m_print_findings = print_findings;
    }

private:
    struct Bind {
        std::string host;
        std::string inside;
    };

    // Binds a host file or device over a path inside the device for each run.
    void BindHostFile(std::string_view host_path, std::string_view inside);
    [[noreturn]] void EnterAndExec(const std::vector<std::string>& argv, bool chroot,
                                   const std::string& output_directory) const;
    void MountDevice() const;

    std::string m_base;    // the runs' own files, removed with this object
    std::string m_root;
    bool m_keep_root;
    std::string m_program;
    std::string m_mtd_driver;
    bool m_valgrind = false;
    bool m_print_findings = false;
    std::vector<Bind> m_binds;
    std::vector<std::string> m_tmpfs;   // host paths, unmounted on destruction
    bool m_private_mounts = false;
    mutable unsigned m_runs = 0;
};

} // namespace sim
