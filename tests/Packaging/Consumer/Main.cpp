// Uses something of every library, so that each one has to be found, compiled against and linked.

#include "Cancellation/Token.h"
#include "ClientCommunications/IClientConfig.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "LibraryLogger/ILogger.h"
#include "ObjectMapping/DateTime.h"
#include "ObjectMapping/Serialization.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"
#include "Platform/IClock.h"

#include <iostream>
#include <stdexcept>

namespace {

class Logger : public Ombry::LibraryLogger::ILogger {
public:
    bool IsEnabled(int) override { return true; }
    void Log(const char*, int, const char*, int, const std::string&) override { ++lines; }
    int lines = 0;
};

}  // namespace

int main() {
    Logger logger;
    logger.Log(__FILE__, __LINE__, "main", 0, "");
    std::cout << "lines " << logger.lines << "\n";

    std::cout << Ombry::ObjectMapping::FormatDateTime(Ombry::TimePoint(Ombry::Duration(5))) << "\n";
    std::cout << "clock runs " << (Ombry::Platform::Clock().Now() > Ombry::TimePoint()) << "\n";

    const Ombry::Cancellation::Token token = Ombry::Cancellation::CreateCancellable();
    token.Cancel();
    std::cout << "cancelled " << token.IsCancelled() << "\n";

    OmbryZephCore::ZephSorrelConnectionParameters connection("server1", 8181);
    connection.SetUseSSL(true);

    Ombry::ClientCommunications::Datacenter datacenter;
    Ombry::ObjectMapping::DeserializeObject(datacenter, R"({"id":"1","name":"Sandbox"})", nullptr, true);
    std::cout << datacenter.id << " " << datacenter.name << "\n";

    const auto root = Ombry::ClientCommunications::RootRequestMetaData::create("PrintLabels");
    root->ForEachValue(
        [](const std::string& key, const std::string& value) { std::cout << key << ": " << value << "\n"; });

    try {
        Ombry::ClientCommunications::ClientConfigParameters("").SetSfsUrl("https://server1:port/").Build();
    } catch (const std::invalid_argument& failure) {
        std::cout << failure.what() << "\n";
    }
}
