// A race ends the executable of tests that has it, and which of them was running is said: the report itself
// does not know where the tests' own functions were entered from.

#include <gtest/gtest.h>

#include <sanitizer/common_interface_defs.h>

#include <cstdio>

// The sanitizer asks for these before it reads its options from the environment.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options();
const char* __tsan_default_options() {
    return "halt_on_error=1";
}

namespace Ombry::Tests {
namespace {

[[maybe_unused]] const bool racesAreNamed = [] {
    __sanitizer_set_death_callback([] {
        const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
        if (test) std::fprintf(stderr, "while %s.%s was running\n", test->test_suite_name(), test->name());
    });
    return true;
}();

}  // namespace
}  // namespace Ombry::Tests
