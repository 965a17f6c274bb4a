#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace test_support {

// A fresh directory under /tmp, removed with everything in it at the end of
// the owner's scope.
class TempDirectory {
public:
    explicit TempDirectory(const std::string& prefix)
    {
        std::string pattern = "/tmp/" + prefix + ".XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp " + pattern);
        m_path = pattern;
    }
    ~TempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace test_support
