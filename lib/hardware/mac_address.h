#pragma once

#include <string>

// A MAC address as six hexadecimal byte values separated by ":" (one or two
// digits each, any case), re-formatted as lower-case two-digit groups. Text
// that is not such an address gives the empty string.
std::string NormaliseMacAddress(const std::string& text);
