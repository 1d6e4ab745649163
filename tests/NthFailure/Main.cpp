// With --thorough behind the options of the test library nothing is passed over: each byte, each allocation.

#include "tests/NthFailure/NthFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    Ombry::Tests::NthFailure::isThorough =
        std::count(argv + 1, argv + argc, std::string_view("--thorough")) > 0;
    return RUN_ALL_TESTS();
}
