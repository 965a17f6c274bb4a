#pragma once

#include <exception>
#include <string>

// The exception for every failed system call: the error number and what was
// being done ("flock", a path) when it failed.
class ErrnoException : public std::exception {
public:
    // context may be null when the failed call needs no naming (a write, an fsync).
    ErrnoException(int error, const char* context);
    ErrnoException(int error, const std::string& context);

    const char* what() const noexcept override;
    int error() const noexcept { return m_error; }

private:
    std::string m_message;
    int m_error;
};
