#pragma once

#include <gtest/gtest.h>

#include <string>

/// The text with the first occurrence of `from`, which must be there, replaced.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}
