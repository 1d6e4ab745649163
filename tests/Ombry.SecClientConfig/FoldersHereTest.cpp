#include "Ombry.SecClientConfig/Here/FoldersHere.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

TEST(FoldersHereTest, MachineAndUserHaveFoldersOfTheirOwnBelowTheCurrentOne) {
    SecClientConfig::FoldersHere folders;

    EXPECT_EQ(*folders.ProgramDataQuennet(), L"./Quennet");
    EXPECT_EQ(*folders.CurrentUserQuennet(), "./User/Quennet");
}

}  // namespace
}  // namespace Ombry::Tests
