// The sandbox's page in a real browser, beside the real tool.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Sandbox/Browser/Browser.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {
namespace {

const std::string Live = "document.getElementById('stream').dataset.state === 'live'";
const std::string ClientsEnrolled = "document.getElementById('client-count').textContent === ";

/// Whether a row of a table holds these texts, as they stand in a script.
std::string HasRow(const std::string& table, const std::string& texts) {
    return "[...document.querySelectorAll('#" + table + "-rows tr')].some((row) => [" + texts +
           "].every((text) => row.textContent.includes(text)))";
}

class SandboxPageInBrowserTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            browser = std::make_unique<Browser>();
        } catch (const std::runtime_error& failure) {
            reason = failure.what();
        }
    }
    static void TearDownTestSuite() { browser.reset(); }

    void SetUp() override {
        if (!browser) LeaveOut("no browser can be started: " + reason);
    }

    void Begin() {
        sandbox = std::make_unique<Sandbox>();
        ExpectSuccess(machine.Run({"configure-bootstrap-url", "-u", "admin", "-p", "secret", "-dn", "Sandbox",
                                   "-r", sandbox->Url()}));
        OpenAs("admin:secret@");
        browser->Await(Live);
    }
    void OpenAs(const std::string& user) { browser->Open("https://" + user + sandbox->HostAndPort() + "/"); }

    ProcessOutcome Enroll(const std::string& name, const std::string& description) {
        return machine.Run(
            {"enroll-client", "-u", "admin", "-p", "secret", "-nn", name, "-desc", description});
    }

    static inline std::unique_ptr<Browser> browser;
    static inline std::string reason;
    std::unique_ptr<Sandbox> sandbox;
    const Machine machine{};
};

TEST_F(SandboxPageInBrowserTest, EnrollmentIsFollowedAsItHappens) {
    Begin();
    browser->Await(ClientsEnrolled + "'0'");
    ExpectSuccess(Enroll("printer", "First floor"));
    browser->Await(HasRow("request", "'POST /v1/auth/locationawareclients', '201'"));
    browser->Await(ClientsEnrolled + "'1'");
    browser->Await(HasRow("client", "'First floor', 'Sandbox'"));
    ExpectSuccess(
        machine.Run({"enroll-service", "-n", "printer", "-owner", "printer", "-name", "v1-print", "-url",
                     "https://printer:9443/print", "-namespace", "Office", "-hostname", "printer"}));
    browser->Await(HasRow("service", "'v1-print', 'Office', 'https://printer:9443/print', 'Sandbox'"));
    ExpectSuccess(machine.Run({"unenroll-client-self", "-n", "printer"}));
    browser->Await(ClientsEnrolled + "'0'");
    EXPECT_EQ(browser->Ask("document.querySelector('#client-rows tr')"), "null");
}

TEST_F(SandboxPageInBrowserTest, FaultThatIsSwitchedOnHitsTheNextCommandAndSwitchesItselfOff) {
    Begin();
    browser->Click("#fault-path option[value='/v1/ddb']");
    browser->Type("#status-code", "418");
    browser->Click("[data-kind=status]");
    browser->Await("document.querySelector('[data-kind=status]').getAttribute('aria-checked') === 'true'");
    EXPECT_EQ(browser->Ask("document.querySelector('[data-kind=status] ~ p').textContent"),
              "418 · next call · list of datacenters");
    const Words list{"get-datacenters", "-u", "admin", "-p", "secret", "-r", sandbox->Url()};
    EXPECT_EQ(machine.Run(list).exitCode, 255);
    browser->Await("document.querySelector('[data-kind=status]').getAttribute('aria-checked') === 'false'");
    browser->Await(HasRow("request", "'GET /v1/ddb/datacenters', '418', 'fault'"));
    EXPECT_EQ(machine.Run(list).exitCode, 0);
    // One that is switched off in time hits nothing.
    browser->Click("[data-kind=reset]");
    browser->Await("document.querySelector('[data-kind=reset]').getAttribute('aria-checked') === 'true'");
    browser->Click("[data-kind=reset]");
    browser->Await("document.querySelector('[data-kind=reset]').getAttribute('aria-checked') === 'false'");
    EXPECT_EQ(machine.Run(list).exitCode, 0);
}

TEST_F(SandboxPageInBrowserTest, WithoutNameAndPasswordThereIsNothing) {
    sandbox = std::make_unique<Sandbox>();
    for (const std::string user : {"", "admin:wrong@"}) {
        try {
            OpenAs(user);
        } catch (const std::runtime_error&) {  // a browser that shows nothing of such an answer
        }
        EXPECT_EQ(browser->Ask("document.querySelectorAll('[role=switch]').length"), "0");
    }
    EXPECT_EQ(sandbox->Requests().find(" 200\n"), std::string::npos);
}

/// At another port of the same address: for the browser another origin of the same site, with whose calls it
/// sends the password.
TEST_F(SandboxPageInBrowserTest, PageOfAnotherOriginDrivesNothingAlthoughTheBrowserSendsThePasswordForIt) {
    Begin();
    const Sandbox other;
    browser->Open(other.Url());
    const std::string origin = "https://" + sandbox->HostAndPort();
    const auto call = [&](const std::string& url, const std::string& options) {
        return browser->AwaitPromise("fetch('" + url + "', {mode: 'no-cors', credentials: 'include', " +
                                     options + "})");
    };
    // These need no leave of the service to be sent: they are all that a form could send as well.
    call(sandbox->Url() + "/sandbox/faults", "method: 'POST', body: '/v1/ddb:9:status=418'");
    call(origin + "/page/faults", R"(method: 'POST', body: '{"fault":"status=418","on":true}')");
    call(origin + "/page/events", "method: 'GET'");
    EXPECT_EQ(browser->AwaitPromise("fetch('" + origin + "/page/events', {credentials: 'include'})"),
              "TypeError: Failed to fetch");
    browser->Ask(
        "document.body.append(Object.assign(document.createElement('form'), {method: 'post',"
        " enctype: 'text/plain', action: '" +
        sandbox->Url() +
        "/sandbox/faults'})),"
        " document.forms[0].submit()");
    browser->Await("location.origin === '" + origin + "'");
    OpenAs("");  // it still knows them
    browser->Await(Live);
    browser->Await("document.getElementById('instance-count').textContent === '1'");
    EXPECT_EQ(browser->Ask("document.querySelectorAll('[aria-checked=true]').length"), "0");
    const std::string requests = sandbox->Requests();
    const auto countOf = [&](const std::string& line) {
        int count = 0;
        for (std::size_t at = requests.find(line); at != std::string::npos; at = requests.find(line, at + 1))
            ++count;
        return count;
    };
    EXPECT_EQ(countOf("POST /securityframeworkservice/sandbox/faults 403\n"), 2) << requests;
    EXPECT_EQ(countOf("POST /page/faults 403\n"), 1) << requests;
    EXPECT_EQ(countOf("GET /page/events 403\n"), 2) << requests;
}

TEST_F(SandboxPageInBrowserTest, WhatClientsSayOfThemselvesIsText) {
    Begin();
    const std::string hostile = R"(<img src=x onerror="document.title=1"><script>document.title=2</script>)";
    ExpectSuccess(Enroll("hostile", hostile));
    browser->Await(HasRow("client", "'<img src=x onerror=', '</script>'"));
    EXPECT_EQ(browser->Ask("document.querySelector('#client-rows td').textContent"), hostile);
    EXPECT_EQ(browser->Ask("document.querySelectorAll('main img, main script').length"), "0");
    EXPECT_EQ(browser->Ask("document.title"), "Ombry sandbox");
    // Nor could the page be talked into making markup of it.
    EXPECT_NE(browser->Ask("(() => { try { document.body.innerHTML = ''; return 'made'; }"
                           " catch (failure) { return failure.name; } })()"),
              "made");
}

TEST_F(SandboxPageInBrowserTest, CutOfTheStreamIsShownAndMendedByItself) {
    Begin();
    ExpectSuccess(Enroll("printer", "First floor"));
    browser->Await(ClientsEnrolled + "'1'");
    const std::string port = std::to_string(sandbox->Port());
    const auto state = sandbox->State();
    sandbox.reset();
    browser->Await("document.getElementById('stream').textContent.startsWith('Cut off at ')");
    EXPECT_EQ(browser->Ask("document.querySelector('[data-kind=reset]').disabled"), "true");
    sandbox = std::make_unique<Sandbox>(Words{"--port", port}, state);
    browser->Await(Live);
    browser->Await("!document.querySelector('[data-kind=reset]').disabled");
    // Its requests are counted anew.
    EXPECT_EQ(browser->Ask("document.querySelector('#request-rows tr')"), "null");
    ExpectSuccess(Enroll("scanner", "Second floor"));
    browser->Await(ClientsEnrolled + "'2'");
    browser->Await(HasRow("request", "'POST /v1/auth/locationawareclients', '201'"));
}

TEST_F(SandboxPageInBrowserTest, PhoneNeedsNoScrollingToTheSide) {
    Begin();
    ExpectSuccess(Enroll("printer", "First floor"));
    browser->Narrow();
    browser->Await(ClientsEnrolled + "'1'");
    EXPECT_EQ(browser->Ask("document.scrollingElement.scrollWidth"), "360");
}

}  // namespace
}  // namespace Ombry::Tests
