#include "platform/errno_exception.h"

#include <cstring>
#include <sstream>

ErrnoException::ErrnoException(int error, const char* context)
    : m_error(error)
{
    std::ostringstream message;
    if (context != nullptr)
        message << context << ": ";
    message << std::strerror(error) << " (" << error << ")";
    m_message = message.str();
}

ErrnoException::ErrnoException(int error, const std::string& context)
    : ErrnoException(error, context.c_str())
{
}

const char* ErrnoException::what() const noexcept
{
    return m_message.c_str();
}
