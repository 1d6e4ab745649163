#include "ClientCommunications/Impl/AaSigningCertificateFinder.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/Service.h"
#include "tests/Fakes/FakeServiceFinder.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

class FixedFinder : public IServiceFinder {
public:
    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData>,
                                         Cancellation::Token token) override {
        ADD_FAILURE() << "a search that nobody's call asks for";
        return Find(token);
    }
    std::shared_ptr<IFoundServices> Find(Cancellation::Token) override { return services; }

    std::shared_ptr<FoundServices> services = std::make_shared<FoundServices>();
};

std::shared_ptr<IService> ServiceWith(const std::vector<std::pair<std::string, std::string>>& properties) {
    ServiceDto dto;
    for (const auto& [key, value] : properties) {
        ServiceDto::Property property;
        property.key = key;
        property.value = value;
        dto.properties.push_back(property);
    }
    return std::make_shared<Service>(dto);
}

TEST(AaSigningCertificateFinderTest, CertificatesOfLocalServicesComeBeforeRemoteOnes) {
    const auto finder = std::make_shared<FixedFinder>();
    finder->services->AddRemote(ServiceWith({{"AaSigningCert", "remote"}}));
    finder->services->AddLocal(ServiceWith({{"other", "x"}, {"AaSigningCert", "local"}}));
    finder->services->AddLocal(ServiceWith({{"aasigningcert", "wrong case"}}));
    EXPECT_EQ(AaSigningCertificateFinder(finder).GetCertificates(),
              (std::list<std::string>{"local", "remote"}));
}

TEST(AaSigningCertificateFinderTest, AnEmptyPropertyCountsAndEqualOnesAreNotMerged) {
    const auto finder = std::make_shared<FixedFinder>();
    finder->services->AddLocal(ServiceWith({{"AaSigningCert", ""}}));
    finder->services->AddLocal(ServiceWith({{"AaSigningCert", ""}}));
    EXPECT_EQ(AaSigningCertificateFinder(finder).GetCertificates(), (std::list<std::string>{"", ""}));
}

TEST(AaSigningCertificateFinderTest, NoCertificateIsANormalResult) {
    const auto finder = std::make_shared<FixedFinder>();
    EXPECT_TRUE(AaSigningCertificateFinder(finder).GetCertificates().empty());
    finder->services->AddLocal(ServiceWith({}));
    EXPECT_TRUE(AaSigningCertificateFinder(finder).GetCertificates().empty());
}

TEST(AaSigningCertificateFinderTest, AFailedSearchIsTheCallers) {
    const auto finder = std::make_shared<FakeServiceFinder>();
    finder->OnFind([] { throw std::runtime_error("down"); });
    EXPECT_THROW(AaSigningCertificateFinder(finder).GetCertificates(), std::runtime_error);
}

}  // namespace
}  // namespace Ombry::Tests
