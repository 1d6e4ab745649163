#include "ClientCommunications/Impl/RequestHeaders.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    RequestHeaders headers;
    std::map<std::string, std::string> expected;
    for (int i = 0; i < 3000; ++i) {
        const std::string& name = *names[random() % names.size()];
        if (random() % 3 == 0) {
            headers.Remove(name);
            expected.erase(name);
        } else {
            const std::string value(random() % 30, static_cast<char>('a' + random() % 26));
            headers.Set(name, value);
            expected[name] = value;
        }
        std::string text;
        for (const auto& [expectedName, value] : expected)
            text += expectedName + ": " + value + "\n";
        ASSERT_EQ(TextOf(headers), text);
        ASSERT_EQ(headers.Get(name), expected.contains(name) ? expected[name] : "");
    }
}

}  // namespace
}  // namespace Ombry::Tests
