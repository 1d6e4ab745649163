#pragma once

#include "tests/EndToEnd/ChildProcess.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <unistd.h>

#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// A real browser without a window, told what to do by WebDriver. Every failure is a `std::runtime_error`.
class Browser {
public:
    Browser()
        : driver({"chromedriver", "--port=0"}),
          address("http://127.0.0.1:" + PortIn(driver.AwaitLine("ChromeDriver was started successfully"))) {
        // As root it has no sandbox of its own, and a container has little shared memory.
        const std::string asRoot = geteuid() == 0 ? R"("--no-sandbox",)" : "";
        rapidjson::Document answer;
        Call(answer, "POST", "/session",
             R"({"capabilities":{"alwaysMatch":{"acceptInsecureCerts":true,"timeouts":{"script":60000},)"
             R"("goog:chromeOptions":{"args":["--headless=new","--disable-gpu","--disable-dev-shm-usage",)" +
                 asRoot + R"("--user-data-dir=)" + profile.Path() + R"("]}}}})");
        session = std::string("/session/") + answer["value"]["sessionId"].GetString();
    }
    ~Browser() {
        RunProcess({"curl", "-s", "-X", "DELETE", address + session});
        driver.Signal(SIGTERM);
        driver.Wait();
    }
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    void Open(const std::string& url) { Tell("/url", "url", url); }

    /// A real click, which fails if something else lies above the element.
    void Click(const std::string& selector) { Tell("/element/" + Find(selector) + "/click"); }

    /// Types into a field in the place of what is there.
    void Type(const std::string& selector, const std::string& text) {
        const std::string element = "/element/" + Find(selector);
        Tell(element + "/clear");
        Tell(element + "/value", "text", text);
    }

    /// What an expression is on the page, as text.
    std::string Ask(const std::string& expression) {
        return Script("/execute/sync", "return String(" + expression + ")");
    }

    /// Waits until an expression holds, which is looked at whenever the page changes. Throws at a limit that
    /// only a page that never gets there reaches.
    void Await(const std::string& expression) {
        Script("/execute/async",
               "const done = arguments[0];"
               "const holds = () => { try { return Boolean(" +
                   expression +
                   "); } catch (missing) { return false; } };"
                   "if (holds()) return done('');"
                   "const observer = new MutationObserver(() => {"
                   "  if (holds()) { observer.disconnect(); done(''); } });"
                   "observer.observe(document,"
                   "  { subtree: true, childList: true, attributes: true, characterData: true });");
    }

    /// What a promise comes to, as text; of one that fails, what it says.
    std::string AwaitPromise(const std::string& expression) {
        return Script("/execute/async",
                      "const done = arguments[0];(" + expression +
                          ").then((value) => done(String(value)), (failure) => done(String(failure)));");
    }

    /// As wide as a phone, whatever the window is.
    void Narrow() {
        Tell("/goog/cdp/execute", R"({"cmd":"Emulation.setDeviceMetricsOverride","params":)"
                                  R"({"width":360,"height":740,"deviceScaleFactor":1,"mobile":true}})");
    }

private:
    static std::string PortIn(const std::string& line) {
        const std::size_t begin = line.rfind("port ") + 5;
        return line.substr(begin, line.find_first_not_of("0123456789", begin) - begin);
    }

    static std::string Body(const char* key, const std::string& text) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        writer.StartObject();
        writer.Key(key);
        writer.String(text.c_str());
        writer.Key("args");
        writer.StartArray();
        writer.EndArray();
        writer.EndObject();
        return buffer.GetString();
    }

    void Tell(const std::string& path, const char* key, const std::string& text) {
        Tell(path, Body(key, text));
    }
    void Tell(const std::string& path, const std::string& body = "{}") {
        rapidjson::Document answer;
        Call(answer, "POST", session + path, body);
    }

    std::string Find(const std::string& selector) {
        rapidjson::Document answer;
        Call(answer, "POST", session + "/element",
             R"({"using":"css selector",)" + Body("value", selector).substr(1));
        return answer["value"].MemberBegin()->value.GetString();
    }

    std::string Script(const std::string& path, const std::string& text) {
        rapidjson::Document answer;
        Call(answer, "POST", session + path, Body("script", text));
        return answer["value"].IsString() ? answer["value"].GetString() : "";
    }

    void Call(rapidjson::Document& answer, const char* method, const std::string& path,
              const std::string& body) {
        const std::string text = RunProcess({"curl", "-s", "-X", method, "-H",
                                             "Content-Type: application/json", "-d", body, address + path})
                                     .out;
        answer.Parse(text.data(), text.size());
        if (answer.HasParseError() || !answer.IsObject() || !answer.HasMember("value") ||
            (answer["value"].IsObject() && answer["value"].HasMember("error")))
            throw std::runtime_error("browser: " + path + " " + body + ": " + text);
    }

    const TemporaryDirectory profile;
    ChildProcess driver;
    const std::string address;
    std::string session;
};

}  // namespace Ombry::Tests
