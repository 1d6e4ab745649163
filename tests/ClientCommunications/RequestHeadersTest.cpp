#include "ClientCommunications/Impl/RequestHeaders.h"
#include "tests/Fakes/FreedMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

std::string TextOf(const RequestHeaders& headers) {
    std::string text;
    headers.ForEach(
        [&](const std::string& name, const std::string& value) { text += name + ": " + value + "\n"; });
    return text;
}

TEST(RequestHeadersTest, KnownNamesStandInByteOrder) {
    const auto& names = NamesOfKnownHeaders();
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(NameOf(KnownHeader::Authorization), names.front());
    EXPECT_EQ(NameOf(KnownHeader::RequestId), "SF-Request-Id");
    EXPECT_EQ(NameOf(KnownHeader::SourceDatacenterId), names.back());
}

TEST(RequestHeadersTest, KnownAndOtherHeadersAreAsInOneMap) {
    // Known names as a caller's own text and as the very strings of the table: they mean the same header.
    const auto& known = NamesOfKnownHeaders();
    std::vector<std::string> texts{"", "A", "Authorization ", "B", "SF-", "SF-Request", "SF-Z", "Z"};
    texts.insert(texts.end(), known.begin(), known.end());
    std::vector<const std::string*> names;
    for (const std::string& text : texts)
        names.push_back(&text);
    for (const std::string& name : known)
        names.push_back(&name);
    std::mt19937 random(11);
    std::deque<std::string> lent;
    RequestHeaders headers;
    std::map<std::string, std::string> expected;
    for (int i = 0; i < 3000; ++i) {
        const std::string& name = *names[random() % names.size()];
        const auto place = std::find(known.begin(), known.end(), name);
        const auto header = static_cast<KnownHeader>(place - known.begin());
        const bool asKnown = place != known.end() && random() % 2 == 0;
        const std::string value(random() % 30, static_cast<char>('a' + random() % 26));
        switch (random() % 3) {
            case 0:
                asKnown ? headers.Remove(header) : headers.Remove(name);
                expected.erase(name);
                break;
            case 1:
                asKnown ? headers.Set(header, std::string(value)) : headers.Set(name, value);
                expected[name] = value;
                break;
            default:
                if (!asKnown) continue;
                headers.Share(header, {std::shared_ptr<void>(), &lent.emplace_back(value)});
                expected[name] = value;
        }
        std::string text;
        for (const auto& [expectedName, value] : expected)
            text += expectedName + ": " + value + "\n";
        ASSERT_EQ(TextOf(headers), text);
        ASSERT_EQ(headers.Get(name), expected.contains(name) ? expected[name] : "");
        if (place != known.end()) {
            ASSERT_EQ(headers.IsEmpty(header), headers.Get(name).empty());
        }
    }
}

TEST(RequestHeadersTest, ASharedValueIsNeitherCopiedNorWiped) {
    const std::string text = "a value too long for a string object";
    const auto value = std::make_shared<const std::string>(text);
    {
        RequestHeaders headers;
        headers.Share(KnownHeader::Authorization, value);
        headers.ForEach([&](const std::string& name, const std::string& walked) {
            EXPECT_EQ(name, "Authorization");
            EXPECT_EQ(&walked, value.get());
        });
        headers.Remove(KnownHeader::Authorization);
        EXPECT_EQ(value.use_count(), 1);
        headers.Share(KnownHeader::Authorization, value);
        headers.Set("Authorization", "another");
        EXPECT_EQ(value.use_count(), 1);
        headers.Share(KnownHeader::Authorization, value);
    }
    EXPECT_EQ(value.use_count(), 1);
    EXPECT_EQ(*value, text);
}

TEST(RequestHeadersTest, ACopyIsWipedWhenAnotherValueTakesItsPlace) {
    const std::string secret = "a credential too long for a string object";
    const std::string lent = "lent";
    const FreedMemory freed(secret);
    for (const int how : {0, 1, 2}) {
        RequestHeaders headers;
        headers.Set("Authorization", secret);
        if (how == 0) headers.Share(KnownHeader::Authorization, {std::shared_ptr<void>(), &lent});
        if (how == 1) headers.Set(KnownHeader::Authorization, std::string(100, 'x'));
        if (how == 2) headers.Remove(KnownHeader::Authorization);
    }
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
