#include "hardware/mac_address.h"

#include <array>
#include <cctype>

#include <fmt/format.h>

namespace {

int HexDigit(char c)
{
    if (!std::isxdigit(static_cast<unsigned char>(c)))
        return -1;
    return std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
}

} // namespace

std::string NormaliseMacAddress(const std::string& text)
{
    std::array<unsigned, 6> bytes{};
    size_t position = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0 && (position >= text.size() || text[position++] != ':'))
            return {};
        unsigned digits = 0;
        while (position < text.size() && digits < 2 && HexDigit(text[position]) >= 0) {
            bytes[i] = bytes[i] * 16 + static_cast<unsigned>(HexDigit(text[position++]));
            ++digits;
        }
        if (digits == 0)
            return {};
    }
    if (position != text.size())
        return {};
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", bytes[0], bytes[1], bytes[2], bytes[3], bytes[4],
                       bytes[5]);
}
