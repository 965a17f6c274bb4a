#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sandbox {

struct RunResult {
    int exit_status = -1;   // the status passed to exit(), or -1 after a signal
    int signal = 0;         // the signal that ended the run, or 0
    std::string standard_error;
    std::string standard_output;
    double wall_seconds = 0;
    // Peak resident memory of the process and every child it waited for
    // (the kernel's figure for the whole tree).
    long max_rss_kib = 0;
    // Peak resident memory of the started program alone, sampled from the
    // kernel's high-water mark while it ran; 0 if it ended before a sample.
    long own_peak_kib = 0;
};

// A synthetic device: a directory tree that becomes "/" for the collector,
// with fake /proc, /sys, /dev, /etc and /var files and the host's /usr bound
// read-only so that the shell and the tools the dump script runs are there.
// The collector runs unmodified inside a private mount namespace and chroot;
// running needs root.
class DeviceRoot {
public:
    DeviceRoot();
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

    // Binds a host file or device over a path inside the device for each run
    // ("/dev/null" and "/dev/urandom" are bound from the host by default).
    void BindHostFile(std::string_view host_path, std::string_view inside);
    void UnbindHostFile(std::string_view inside);

    // Loads a shared library into every dynamically linked program of the
    // device, through the dynamic loader's own preload file.
    void Preload(const std::string& host_library);

    // The boot loader's record of the reset causes, a big-endian cell in the
    // device tree.
    void SetResetCauses(uint32_t causes) const;

    class Process {
    public:
        Process(pid_t pid, std::string output_directory);
        Process(Process&& other) noexcept;
        Process& operator=(Process&&) = delete;
        ~Process();
        // Waits for the collector; after the timeout it is killed and the
        // result shows the signal.
        RunResult Wait(std::chrono::seconds timeout = std::chrono::seconds(120));

    private:
        pid_t m_pid;
        std::string m_output_directory;
        std::chrono::steady_clock::time_point m_started;
    };

    // Starts a program inside the device; by default the collector, which is
    // bound to "/crash-dump" there. argv[0] is a path inside the device.
    Process Start(const std::vector<std::string>& argv = {kCollector}) const;
    RunResult Run(const std::vector<std::string>& argv = {kCollector}) const { return Start(argv).Wait(); }

    static constexpr const char* kCollector = "/crash-dump";

    // The collector binary to run; defaults to the one this build produced.
    void SetProgram(std::string host_program) { m_program = std::move(host_program); }

private:
    struct Bind {
        std::string host;
        std::string inside;
    };

    [[noreturn]] void EnterAndExec(const std::vector<std::string>& argv, const std::string& output_directory) const;

    std::string m_base;
    std::string m_root;
    std::string m_program;
    std::vector<Bind> m_binds;
    mutable unsigned m_runs = 0;
};

} // namespace sandbox
