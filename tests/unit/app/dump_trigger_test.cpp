#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "app/dump_trigger.h"

namespace {

using namespace std::string_literals;

struct NumberCase {
    std::string text;
    uint32_t value;
};

void ExpectParses(std::initializer_list<NumberCase> cases)
{
    for (const NumberCase& c : cases)
        EXPECT_EQ(ParseUnsignedBase0(c.text), c.value) << "text \"" << c.text << '"';
}

TEST(ParseUnsignedBase0Test, BaseFollowsThePrefix)
{
    ExpectParses({
        {"0", 0},          {"1\n", 1},        {"42", 42},        {"0x10", 16},     {"0X1f\n", 31},
        {"0xFfFf", 65535}, {"0b101", 5},      {"0B11", 3},       {"010", 8},       {"0777", 511},
        {"00", 0},         {"0b12", 1},       {"019", 1},        {"0x1g", 1},      {"1a", 1},
    });
}

TEST(ParseUnsignedBase0Test, TextWithoutDigitsIsZero)
{
    ExpectParses({
        {"", 0},   {"\n", 0},  {"abc", 0}, {"x10", 0}, {"0x", 0},  {"0xg", 0},
        {"0b", 0}, {"0b2", 0}, {"-", 0},   {"+-1", 0}, {"- 5", 0}, {"\0" "5"s, 0},
    });
}

TEST(ParseUnsignedBase0Test, LeadingWhiteSpaceAndSign)
{
    ExpectParses({
        {"  42", 42},
        {" \t\n\v\f\r7", 7},
        {"+5", 5},
        {"-1", 0xffffffff},
        {"-0x10", 0xfffffff0},
        {"-4294967295", 1},
        {" 1 2", 1},
    });
}

TEST(ParseUnsignedBase0Test, ValuesPast32BitsSaturate)
{
    ExpectParses({
        {"4294967295", 0xffffffff},
        {"4294967296", 0xffffffff},
        {"0xFFFFFFFF", 0xffffffff},
        {"0x100000000", 0xffffffff},
        {"0b100000000000000000000000000000000", 0xffffffff},
        {"037777777777", 0xffffffff},
        {"040000000000", 0xffffffff},
        {"99999999999999999999999999", 0xffffffff},
        {"-4294967296", 0xffffffff},
        {"000000000000000000000000001", 1},
    });
}

} // namespace
