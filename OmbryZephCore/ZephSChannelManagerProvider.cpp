#include "OmbryZephCore/ZephSChannelClientConnectionManager.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "Platform/MadeOnce.h"

namespace OmbryZephCore {
namespace {

class SChannelManagerProvider : public ZephSSLManagerProviderIf {
public:
    std::unique_ptr<ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<Ombry::LibraryLogger::ILogger>& logger, bool bVerbose) override {
        return std::make_unique<ZephSChannelClientConnectionManager>(logger, bVerbose);
    }
};

}  // namespace
}  // namespace OmbryZephCore

namespace Ombry::Platform {

template <>
OmbryZephCore::ZephSSLManagerProviderIf& Production<OmbryZephCore::ZephSSLManagerProviderIf>() {
    return MadeOnce<OmbryZephCore::SChannelManagerProvider>();
}

}  // namespace Ombry::Platform
