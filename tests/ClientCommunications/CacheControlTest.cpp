#include "ClientCommunications/Impl/CacheControl.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/GroupingLocale.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

constexpr long long Received = 1000;
constexpr long long Most = std::numeric_limits<long long>::max();
constexpr long long DefaultExpiry = Received + 300;
constexpr long long DefaultStale = 604'500;

class CacheControlTest : public testing::Test {
protected:
    FakeClock clock{TimePoint(Duration(SecondsToTicks(Received)))};
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
};

struct Case {
    const char* value;
    long long expiryTime;
    long long maxStaleTime;
};

TEST_F(CacheControlTest, TimesComeOutOfTheTwoDirectives) {
    const Case cases[] = {
        {"max-age=60, stale-while-revalidate=120", Received + 60, 120},
        {"stale-while-revalidate=120,max-age=60", Received + 60, 120},
        {"private, max-age=60, must-revalidate, stale-while-revalidate=120, x", Received + 60, 120},
        {"m a x - a g e = 6 0,stale-while-revalidate = 1 2 0", Received + 60, 120},
        {"max-age=0,stale-while-revalidate=0", Received, 0},
        {"max-age=-5,stale-while-revalidate=-7", Received - 5, -7},
        {"max-age=+5,stale-while-revalidate=7x", Received + 5, 7},
        // Text that is no number reads as 0.
        {"max-age=x,stale-while-revalidate=\"9\"", Received, 0},
        // The first of two counts, and there is no word boundary.
        {"max-age=1,max-age=2,stale-while-revalidate=3", Received + 1, 3},
        {"s-max-age=1,stale-while-revalidate=3", Received + 1, 3},
        // Empty values leave the defaults.
        {"max-age=,stale-while-revalidate=3", DefaultExpiry, DefaultStale},
        {"max-age=3,stale-while-revalidate=", DefaultExpiry, DefaultStale},
        // Numbers that do not fit stop at the end of the range, and so do sums.
        {"max-age=99999999999999999999,stale-while-revalidate=99999999999999999999", Most, Most},
        {"max-age=9223372036854775807,stale-while-revalidate=9223372036854775807", Most, Most},
        {"max-age=9223372036854774807,stale-while-revalidate=1", Most, 1},
        {"max-age=9223372036854774806,stale-while-revalidate=1", Most - 1, 1},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.value);
        FoundServicesDto dto;
        ApplyCacheControl(item.value, dto);
        EXPECT_EQ(dto.expiryTime, item.expiryTime);
        EXPECT_EQ(dto.maxStaleTime, item.maxStaleTime);
    }
}

TEST_F(CacheControlTest, AMissingDirectiveYieldsAPieceOfTheTextFromThePlaceOfItsLength) {
    const Case cases[] = {
        // Without "stale-while-revalidate" the text from position 22 counts as its value.
        {"max-age=60,private,abc77,x", Received + 60, 77},
        {"max-age=60,private,abcd7", Received + 60, 0},
        {"max-age=60,private,ab,12", Received + 60, 12},
        // Without "max-age" the text from position 7.
        {"abcdefg55,stale-while-revalidate=3", Received + 55, 3},
        {"stale-while-revalidate=3", Received, 3},
        // Directives in another case are missing ones.
        {"MAX-AGE=60,stale-while-revalidate=3", Received, 3},
        // The position is that of the end of the text: an empty piece.
        {"max-age=60,0123456789a", DefaultExpiry, DefaultStale},
        // A comma at the position: an empty piece.
        {"abcdefg,stale-while-revalidate=3", DefaultExpiry, DefaultStale},
        // Blanks are gone before positions are counted.
        {"a b c d e f g 5 5 , stale-while-revalidate=3", Received + 55, 3},
    };
    for (const Case& item : cases) {
        SCOPED_TRACE(item.value);
        FoundServicesDto dto;
        ApplyCacheControl(item.value, dto);
        EXPECT_EQ(dto.expiryTime, item.expiryTime);
        EXPECT_EQ(dto.maxStaleTime, item.maxStaleTime);
    }
}

TEST_F(CacheControlTest, AValueTooShortForAMissingDirectiveFails) {
    for (const char* value : {"", "public", "p r i v a", "max-age=60", "max-age=60,0123456789", "no-store"}) {
        SCOPED_TRACE(value);
        FoundServicesDto dto;
        try {
            ApplyCacheControl(value, dto);
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::out_of_range& failure) {
            EXPECT_STREQ(failure.what(), "invalid string position");
        }
        EXPECT_EQ(dto.expiryTime, DefaultExpiry);
        EXPECT_EQ(dto.maxStaleTime, DefaultStale);
    }
}

TEST_F(CacheControlTest, NumbersAreReadTheSameWhateverTheLocaleOfTheProcess) {
    const GroupingLocale grouping;
    FoundServicesDto dto;
    ApplyCacheControl("max-age=1.234,stale-while-revalidate=5.678", dto);
    EXPECT_EQ(dto.expiryTime, Received + 1);
    EXPECT_EQ(dto.maxStaleTime, 5);
}

TEST_F(CacheControlTest, OnlyBlanksAreRemovedNotTabs) {
    FoundServicesDto dto;
    ApplyCacheControl("max-age=\t60,stale-while-revalidate=1\t2", dto);
    EXPECT_EQ(dto.expiryTime, Received + 60);  // a stream skips white space in front of a number
    EXPECT_EQ(dto.maxStaleTime, 1);
}

}  // namespace
}  // namespace Ombry::Tests
