// Compares what a function makes of several texts with what is expected of each.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>

// The rows are pairs of an argument and the expected result.
template <typename Function>
void expect_results(Function function,
                    std::initializer_list<std::pair<std::string, std::string>> rows) {
    for (const auto &[argument, expected] : rows) {
        EXPECT_EQ(function(argument.c_str()), expected) << "of <" << argument << ">";
    }
}
