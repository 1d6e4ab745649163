#include "Sandbox/HttpHelpers.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/Linux/TestCertificates.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

namespace Ombry::Tests {
namespace {

using namespace Sandbox;
using testing::ElementsAre;
using testing::Pair;

httplib::Request WithHeader(const std::string& name, const std::string& value) {
    httplib::Request request;
    request.headers.emplace(name, value);
    return request;
}

httplib::Request WithBody(const std::string& body, const std::string& type = "application/json") {
    httplib::Request request = WithHeader("Content-Type", type);
    request.body = body;
    return request;
}

httplib::Request Authorized(const std::string& value) {
    return WithHeader("Authorization", value);
}

std::string BasicTextOf(const std::string& value) {
    const auto basic = ParseBasic(Authorized(value));
    return basic ? basic->first + "|" + basic->second : "none";
}

TEST(SandboxBasicTest, NameEndsAtTheFirstColon) {
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of("admin:secret")), "admin|secret");
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of("a:b:c")), "a|b:c");
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of("a:")), "a|");
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of(":b")), "|b");
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of(":")), "|");
    EXPECT_EQ(BasicTextOf("Basic " + Base64Of(std::string("a\0b:c\0d", 7))), std::string("a\0b|c\0d", 7));
}

TEST(SandboxBasicTest, SchemeIsTakenInAnyCase) {
    EXPECT_EQ(BasicTextOf("bAsIC " + Base64Of("a:b")), "a|b");
}

TEST(SandboxBasicTest, WhatIsNoneIsRefused) {
    EXPECT_FALSE(ParseBasic({}));
    for (const std::string& value :
         {std::string(), std::string("Basic"), std::string("Basic "), std::string("Basic !!"),
          std::string("Basic ===="), std::string("Basic YTpi="), std::string("Basic YTp"),
          "Basic" + Base64Of("a:b"), "Basic " + Base64Of("no colon"), "Bearer " + Base64Of("a:b"),
          "Basicx " + Base64Of("a:b"), "Basic " + Base64Of("a:b") + "*", " Basic " + Base64Of("a:b"),
          std::string(100000, 'A')})
        EXPECT_EQ(BasicTextOf(value), "none") << value.substr(0, 30);
}

TEST(SandboxBearerTest, TokenIsAllBehindTheScheme) {
    EXPECT_EQ(ParseBearer(Authorized("Bearer a.b.c")), "a.b.c");
    EXPECT_EQ(ParseBearer(Authorized("BEARER a.b.c")), "a.b.c");
    for (const char* value :
         {"", "Bearer", "Bearer ", "Bearera", "Basic a.b.c", "Bear a.b.c", "Bearers a.b.c"})
        EXPECT_EQ(ParseBearer(Authorized(value)), "") << value;
    EXPECT_EQ(ParseBearer({}), "");
}

TEST(SandboxMediaTypeTest, ParametersAndCaseDoNotMatter) {
    for (const char* value : {"application/json", "application/json; charset=utf-8", "application/json;x=y",
                              "Application/JSON", "application/json "})
        EXPECT_TRUE(HasMediaType(WithHeader("Content-Type", value), "application/json")) << value;
    for (const char* value : {"", "application/jsonx", "application/jso", "text/json", "x; application/json"})
        EXPECT_FALSE(HasMediaType(WithHeader("Content-Type", value), "application/json")) << value;
    EXPECT_FALSE(HasMediaType({}, "application/json"));
}

TEST(SandboxFormTest, PairsAreDecoded) {
    EXPECT_THAT(*ParseForm(""), ElementsAre());
    EXPECT_THAT(*ParseForm("a=1&b=x%20y+z%3D%26&c&d="),
                ElementsAre(Pair("a", "1"), Pair("b", "x y z=&"), Pair("c", ""), Pair("d", "")));
    EXPECT_THAT(*ParseForm("a=1=2"), ElementsAre(Pair("a", "1=2")));
    EXPECT_THAT(*ParseForm("%61=1"), ElementsAre(Pair("a", "1")));
    EXPECT_THAT(*ParseForm("a=%zz&b=%"), ElementsAre(Pair("a", "%zz"), Pair("b", "%")));
}

TEST(SandboxFormTest, ParameterGivenTwiceIsRefused) {
    EXPECT_FALSE(ParseForm("a=1&b=2&a=1"));
    EXPECT_FALSE(ParseForm("a=1&%61=2"));
    EXPECT_FALSE(ParseForm("a=1&a"));
}

std::string AnswerTo(const httplib::Request& request) {
    httplib::Response response;
    rapidjson::Document body;
    if (ParseObject(request, response, body)) return "good";
    return std::to_string(response.status) + " " + response.body;
}

TEST(SandboxJsonBodyTest, ObjectIsTaken) {
    for (const std::string body : {"{}", " {\"a\":[1,null]} \n", "{\"a\":\"\\u0000\"}", "{\"a\":\"é\"}",
                                   // An exponent that the parser alone would look for outside of its table.
                                   "{\"a\":0.0000000000e-2147483639}"})
        EXPECT_EQ(AnswerTo(WithBody(body)), "good") << body;
    // Nesting takes no stack.
    EXPECT_EQ(AnswerTo(WithBody("{\"a\":" + std::string(300000, '[') + std::string(300000, ']') + "}")),
              "good");
}

TEST(SandboxJsonBodyTest, AnythingElseGetsTheErrorDocument) {
    const std::string refused =
        R"(400 {"error":"invalid_request","error_description":"The body must be a JSON object."})";
    for (const std::string& body :
         {std::string(), std::string("[]"), std::string("1"), std::string("null"), std::string("\"{}\""),
          std::string("{"), std::string("{}}"), std::string("{} x"), std::string("{}\0", 3),
          std::string("{}\0x", 4), std::string("{\"a\":\"\xff\"}"), std::string("{\"a\":\"\xed\xa0\x80\"}"),
          std::string("{\"a\":1,}"), std::string("{a:1}"), std::string("{\"a\":NaN}"),
          std::string("{\"a\":1e999}"), std::string(300000, '[')})
        EXPECT_EQ(AnswerTo(WithBody(body)), refused) << body.substr(0, 20);
}

TEST(SandboxJsonBodyTest, OtherTypesGetTheirStatus) {
    const std::string refused =
        R"(415 {"error":"invalid_request","error_description":"The body must be JSON."})";
    EXPECT_EQ(AnswerTo(WithBody("{}", "text/plain")), refused);
    EXPECT_EQ(AnswerTo(WithBody("{}", "")), refused);
    EXPECT_EQ(AnswerTo({}), refused);
}

std::string UnfitOf(const std::string& text, std::vector<Member> members) {
    rapidjson::Document body;
    body.Parse(text.c_str());
    const char* const unfit = FindUnfit(body, members);
    return unfit ? unfit : "";
}

TEST(SandboxJsonBodyTest, MemberMustFitItsShape) {
    const std::map<Shape, std::vector<std::string>> good = {
        {Shape::Text, {"\"\"", "\"x\"", "null"}},
        {Shape::Texts, {"[]", "[\"a\",\"b\"]", "null"}},
        {Shape::Object, {"{}", "{\"a\":1}", "null"}},
        {Shape::Array, {"[]", "[1]", "[\"a\",\"b\"]", "null"}},
        {Shape::Number, {"0", "-2147483648", "2147483647", "null"}},
    };
    const std::set<std::string> all = {"\"\"",       "\"x\"",       "[]",  "[\"a\",\"b\"]", "{}",
                                       "{\"a\":1}",  "[1]",         "0",   "2147483647",    "-2147483648",
                                       "2147483648", "-2147483649", "1.5", "true",          "false",
                                       "[\"a\",1]",  "null"};
    for (const auto& [shape, texts] : good) {
        for (const std::string& text : all) {
            bool isGood = std::find(texts.begin(), texts.end(), text) != texts.end();
            isGood = isGood || (shape == Shape::Array && text.front() == '[');
            EXPECT_EQ(UnfitOf("{\"m\":" + text + "}", {{"m", shape}}), isGood ? "" : "m")
                << text << " " << static_cast<int>(shape);
        }
        EXPECT_EQ(UnfitOf("{}", {{"m", shape}}), "");
    }
}

TEST(SandboxJsonBodyTest, FirstMemberThatDoesNotFitIsNamed) {
    const std::vector<Member> members = {{"a", Shape::Text}, {"b", Shape::Text}, {"c", Shape::Text}};
    EXPECT_EQ(UnfitOf(R"({"c":1,"b":2,"a":"x","d":3})", members), "b");
}

TEST(SandboxJsonBodyTest, ObjectsAndTextsAreReadFromTheirMembersAlone) {
    rapidjson::Document body;
    body.Parse(R"({"o":{},"l":["a","b"],"t":"x","n":1})");
    EXPECT_TRUE(HasObject(body, "o"));
    EXPECT_FALSE(HasObject(body, "l"));
    EXPECT_FALSE(HasObject(body, "x"));
    EXPECT_THAT(TextsMember(body, "l"), ElementsAre("a", "b"));
    EXPECT_THAT(TextsMember(body, "t"), ElementsAre());
    EXPECT_THAT(TextsMember(body, "x"), ElementsAre());
    EXPECT_EQ(TextMember(body, "t"), "x");
    EXPECT_EQ(TextMember(body, "n"), "");
    EXPECT_EQ(TextMember(body, "x"), "");
    EXPECT_EQ(TextMember(body["l"], "t"), "");
}

std::string QueryTextOf(const std::string& path) {
    const auto query = ParseServiceQuery(path);
    if (!query) return "none";
    std::string text;
    const auto add = [&](const char* name, const std::optional<std::string>& part) {
        if (part) text += std::string(name) + "=" + *part + ";";
    };
    add("id", query->id);
    add("name", query->name);
    add("parent", query->parentId);
    add("role", query->role);
    add("namespace", query->nameSpace);
    add("host", query->host);
    return text;
}

TEST(SandboxServiceQueryTest, EveryFormOfAPathIsTaken) {
    const std::vector<std::pair<std::string, std::string>> forms = {
        {"id/i", "id=i;"},
        {"name/n", "name=n;"},
        {"name/n/parent-id/p", "name=n;parent=p;"},
        {"name/n/role/r", "name=n;role=r;"},
        {"name/n/namespace/s/host/h", "name=n;namespace=s;host=h;"},
        {"name/n/host/h/namespace/s", "name=n;namespace=s;host=h;"},
        {"name/name", "name=name;"},
        {"name/", "name=;"},
        {"id/", "id=;"},
        {"name/..", "name=..;"},
    };
    for (const auto& [path, text] : forms)
        EXPECT_EQ(QueryTextOf(path), text) << path;
}

TEST(SandboxServiceQueryTest, OtherPathsAreRefused) {
    for (const char* path : {"", "/", "name", "id", "name/n/", "name/n/role", "Name/n", "role/r",
                             "role/r/name/n", "id/i/name/n", "name/n/id/i", "name/a/name/b",
                             "name/a/role/b/role/c", "name/n/x/y", "/name/n", "name//n", "id/i/"})
        EXPECT_EQ(QueryTextOf(path), "none") << path;
}

TEST(SandboxAnswerTest, DocumentsAreWrittenWithTheirStatus) {
    httplib::Response response;
    SendError(response, 418, "a\"b", "c\nd");
    EXPECT_EQ(response.status, 418);
    EXPECT_EQ(response.get_header_value("Content-Type"), "application/json");
    EXPECT_EQ(response.body, R"({"error":"a\"b","error_description":"c\nd"})");
    SendCreated(response, "i");
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.body, R"({"id":"i"})");
}

TEST(SandboxAnswerTest, ServiceIsWrittenAndOnlyTheAuthenticationServiceHasTheSigningCertificate) {
    ServiceRecord service{"i", "n", "c", "u", "e", "h", "s", "d", {"r"}};
    const auto text = [&] {
        return WriteJson([&](JsonWriter& writer) { WriteService(writer, service, "CERT"); });
    };
    EXPECT_EQ(text(),
              R"({"serviceHostname":"h","serviceNamespace":"s","id":"i","serviceName":"n","endpointUrl":"u",)"
              R"("endpointCert":"e","properties":[]})");
    service.name = "v1-auth";
    EXPECT_EQ(
        text(),
        R"({"serviceHostname":"h","serviceNamespace":"s","id":"i","serviceName":"v1-auth","endpointUrl":"u",)"
        R"("endpointCert":"e","properties":[{"key":"AaSigningCert","value":"CERT"}]})");
}

std::string LogOf(const httplib::Request& request, std::int64_t seconds) {
    FakeClock clock{TimePoint(Duration(SecondsToTicks(seconds)))};
    const Platform::Testing::Replace<Platform::IClock> replaced(clock);
    httplib::Response response;
    response.status = 404;
    testing::internal::CaptureStderr();
    LogRequest(request, response);
    return testing::internal::GetCapturedStderr();
}

TEST(SandboxLogTest, LineHasTheTimeTheCallAndTheStatus) {
    httplib::Request request = Authorized("Bearer secret");
    request.method = "GET";
    request.path = "/a";
    request.target = "/a?token=secret";
    request.body = "secret";
    EXPECT_EQ(LogOf(request, 1'600'000'000), "12:26:40 GET /a 404\n");
    EXPECT_EQ(LogOf(request, 86399), "23:59:59 GET /a 404\n");
    EXPECT_EQ(LogOf(request, 86400 + 3661), "01:01:01 GET /a 404\n");
}

TEST(SandboxLogTest, OneRequestIsOneLineWhateverItHolds) {
    httplib::Request request;
    request.method = "G\nET";
    request.path = std::string("/a\r\n\0\x1b[2J\x7f\xc3\xa9 ~", 14);
    EXPECT_EQ(LogOf(request, 0), "00:00:00 G\\x0AET /a\\x0D\\x0A\\x00\\x1B[2J\\x7F\\xC3\\xA9 ~ 404\n");
}

TEST(SandboxRegexTest, EscapedTextMatchesItselfAlone) {
    std::string text;
    for (char c = ' '; c <= '~'; ++c)
        text += c;
    for (const std::string& one : {text, std::string("/a.b"), std::string("/(a|b)*"), std::string()}) {
        const std::regex expression(EscapeForRegex(one));
        EXPECT_TRUE(std::regex_match(one, expression)) << one;
        EXPECT_FALSE(std::regex_match(one + "x", expression)) << one;
    }
    EXPECT_FALSE(std::regex_match("/aXb", std::regex(EscapeForRegex("/a.b"))));
    EXPECT_FALSE(std::regex_match("/a", std::regex(EscapeForRegex("/(a|b)*"))));
    EXPECT_EQ(EscapeForRegex("a.b"), "a\\.b");
}

}  // namespace
}  // namespace Ombry::Tests
