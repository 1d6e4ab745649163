// A client's credentials that were copied from a machine of the other system.

#include "tests/EndToEnd/Sandbox.h"

#include <string>

namespace Ombry::Tests {
namespace {

// What the tool has written, once on each system: there by Wine's protection, whose outermost form is that of
// the system itself from the first number on, and here with a key that is gone.
const std::string OfLinux =
    "0109e944c5f33ed4176acf66afe7e1018b87cf9292a4f678b42be5a05d991b48ebbd9a2dc44f80a450fd23360aff41c97876"
    "decf2e665c6fbf2f04be208b7b3a49a9059cf97f2603a6bfb5b111994b758c78449621080fc3b8245f1d1440bf5332d8fb37"
    "a0ae65448c8e1fa098b5a38f8b399e67c09f67cddbbd7da20fe2fb3565e996028a0521720b621683e911ffccca7e32326690"
    "a807779d39de7c719e88d72f4565b64758775590ce440830246ea4bdbc4946c4948af247e69663ffeda1f74c3f93ca7c12b5"
    "d2a57cb27609f435a368d607f290def1de37eedc0c549c20077cba66a8288880cb937fb0371fb29a93f4527fb7eaeb28de29"
    "d1199092ef35d43c40fbae";
const std::string OfWindows =
    "0100000057696e652043727970743332206f6b000100000057696e652043727970743332206f6b0000000000020000000000"
    "03660000a80000001000000057696e652043727970743332206f6b000000000004800000a000000010000000dc7cd240be29"
    "98aed9a961b1d1925e5820020000d3cf71b6dc7d1c0dc2200b95b6a128a9f06bce5c1dab8828bbdcbe488e27c8a920238fee"
    "84a23ff63ae2929e3797213e08fc45da1c61168d75bfdc3a2616c7c862276ca8b9c4043b03c2677288a77a227cbe69fece7d"
    "c5d639e03fa170c12aca40d8fdbf0c90f690e13992b4d8ad6a62966d9b185a3bb5c95831974a587d0935ff7763b883a9eb30"
    "5dee85316944a2151a3c5b0315535c029df14756d8ab28f7be7ef01e6bf344eb7e8056c1074126708f4b2550f11335cced33"
    "b6dbaf2887b157b9d1c60c1a9bbd268886180f17852d4b1337beb0a3e966e482fa090e757a222839e2bac392bc310ba601e3"
    "90ddb2fc66566137bd7d2a97416e07e47b64c5a030a5af7f813c9106e3baf20173ef76cfe9380a9b4e84a9e5c55948db14d3"
    "a7dea3b9a7ae785f876be857e36b507a188fca66eab718da22fcf26fcf7bc3f40ee20145643f7478d57f650d5a0a4e993e45"
    "2c3d4cf2368390e8f580325080beacc0d7c1e467b3f8f8f84c66f6a9332fc3c3c92b1d422ab329198053fcfda92d31778040"
    "52c0b56a6994ca989c6209b2d4ea12c8964fae5e229481c81441f48d53c7d1b8c75436c13dbf8130d41b67849bc2df7bd79a"
    "14b12013689270aac84c0ce06e20424760507da8f12661339f3a8df8d3d1e358f70a0d8d3ad4a18bc905b70d8787a673cd49"
    "c68cdf167004503771edb6348a778e8c6aaa4eddc47bb1c4d8b802fd45e9dd9a4f883379346e48bced387177d2c4ee2d1730"
    "c71d746149bb6e1a140000002802807d790cda532b94f813738257beb0c1dd5b";

std::string BytesOf(const std::string& hex) {
    std::string bytes;
    for (std::size_t at = 0; at < hex.size(); at += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return bytes;
}

class ForeignCredentialsTest : public testing::Test {
protected:
    ForeignCredentialsTest() {
        ExpectSuccess(machine.Run(
            {"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox.Url()}));
        machine.Folder().Write(SecurityFolder + "/Components/c1/ombrycomponent.config",
                               BytesOf(ToolUnderTest::IsForWindows() ? OfLinux : OfWindows));
    }

    /// Every command that acts as the client ends with this number, asks the service for nothing and changes
    /// nothing.
    void ExpectRefused(const std::string& number) {
        const Tree before = machine.Files();
        for (const Words& words :
             {Words{"unenroll-client-self", "-n", "c1"}, Words{"enroll-client", "-n", "c1", "-nn", "c2"},
              Words{"enroll-service", "-n", "c1", "-owner", "c1", "-name", "svc", "-url", "https://h:1/x",
                    "-namespace", "ns", "-hostname", "h"},
              Words{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"}}) {
            SCOPED_TRACE(words[0]);
            ExpectException(machine.Run(words), "CryptUnprotectData failed with error " + number);
            EXPECT_EQ(machine.Files(), before);
        }
    }

    Sandbox sandbox{Words{"--install-token", "t"}};
    const Machine machine{};
};

TEST_F(ForeignCredentialsTest, EndEachCommandThatActsAsTheClientAndNothingIsChanged) {
    if (ToolUnderTest::IsForWindows()) return ExpectRefused("13");
    // Without a key there is nothing to decipher with, and none is made.
    ExpectRefused("2");
    ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "other"}));
    ExpectRefused("74");
}

TEST_F(ForeignCredentialsTest, ClientIsEnrolledAnewInTheirPlace) {
    ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "c1"}));
    ExpectSuccess(machine.Run({"unenroll-client-self", "-n", "c1"}));
}

}  // namespace
}  // namespace Ombry::Tests
