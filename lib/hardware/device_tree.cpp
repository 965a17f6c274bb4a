#include "hardware/device_tree.h"

#include <cerrno>

#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"

namespace DeviceTree {

namespace {

// Only an absent file means an absent property; every other error (a
// permission problem, an I/O error) must stay visible as what it is.
std::string ReadProperty(const std::string& relative_path, const std::string& root)
{
    try {
        return ReadWholeFile(root + relative_path);
    } catch (const ErrnoException& e) {
        if (e.error() == ENOENT)
            throw PropertyNotFound();
        throw;
    }
}

} // namespace

uint32_t ReadU32Property(const std::string& relative_path, const std::string& root)
{
    const std::string value = ReadProperty(relative_path, root);
    if (value.size() != 4)
        throw std::runtime_error("Read unexpected size of u32");
    uint32_t result = 0;
    for (char byte : value)
        result = (result << 8) | static_cast<unsigned char>(byte);
    return result;
}

std::string ReadStringProperty(const std::string& relative_path, const std::string& root)
{
    const std::string value = ReadProperty(relative_path, root);
    return value.substr(0, value.find('\0'));
}

} // namespace DeviceTree
