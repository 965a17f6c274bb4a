#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace test_support {

// Names table-driven cases after their `what` text, so that a failing case
// says which one it is.
struct NameFromWhat {
    template <typename Param>
    std::string operator()(const ::testing::TestParamInfo<Param>& test) const
    {
        std::string name = test.param.what;
        for (char& c : name)
            c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        return name;
    }
};

} // namespace test_support
