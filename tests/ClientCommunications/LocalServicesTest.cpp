#include "ClientCommunications/Impl/LocalServices.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceFinderFactory.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/ScriptedGateway.h"

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

/// Texts by name; a name without one cannot be loaded.
class NamedTexts : public INamedStorage {
public:
    explicit NamedTexts(std::map<std::string, std::string> texts) : texts(std::move(texts)) {}

    std::unique_ptr<IStorage> Get(const std::string& name) override {
        const auto found = texts.find(name);
        return std::make_unique<Text>(found == texts.end() ? nullptr : &found->second);
    }
    void Delete(const std::string&) override { ADD_FAILURE() << "nothing is to be deleted"; }
    void Rename(const std::string&, const std::string&) override { ADD_FAILURE() << "nor renamed"; }

private:
    class Text : public IStorage {
    public:
        explicit Text(const std::string* text) : text(text) {}
        std::string Load() override {
            if (!text) throw std::runtime_error("no such text");
            return *text;
        }
        void Save(const std::string&) override { ADD_FAILURE() << "nothing is to be saved"; }

    private:
        const std::string* text;
    };

    const std::map<std::string, std::string> texts;
};

std::string LookupFailure(LocalServiceLookup& lookup, const std::string& name) {
    try {
        return lookup.Lookup(name);
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

TEST(LocalServiceLookupTest, TheRecordOfThatNameGivesTheId) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{
        {"one", R"({"Version":"1.0","Guid":"id of one"})"}, {"two", R"({"Guid":"2","Version":"9"})"}}));
    EXPECT_EQ(lookup.Lookup("one"), "id of one");
    EXPECT_EQ(lookup.Lookup("two"), "2");
}

TEST(LocalServiceLookupTest, AMissingRecordIsAFailureOfTheStorage) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{}));
    EXPECT_EQ(LookupFailure(lookup, "one"), "no such text");
}

TEST(LocalServiceLookupTest, ARecordThatLacksAKeyIsAFailure) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{
        {"noguid", R"({"Version":"1.0"})"}, {"nover", R"({"Guid":"g"})"}}));
    EXPECT_EQ(LookupFailure(lookup, "noguid"),
              R"(ERROR: Missing required field '.Guid' serialization_='{"Version":"1.0"}')");
    EXPECT_EQ(LookupFailure(lookup, "nover"),
              R"(ERROR: Missing required field '.Version' serialization_='{"Guid":"g"}')");
}

TEST(LocalServiceFinderFactoryTest, AServiceIsFoundThroughTheComponentItBelongsTo) {
    const auto gateway = std::make_shared<ScriptedGateway>();
    gateway->Answer(200, "{}");
    LocalServiceFinderFactory factory(
        std::make_shared<LocalServiceLookup>(std::make_shared<NamedTexts>(
            std::map<std::string, std::string>{{"component", R"({"Version":"1.0","Guid":"parent"})"}})),
        std::make_shared<ServiceFinderFactory>(
            gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"), nullptr, nullptr));
    factory.Create("component", "service")->Find(Cancellation::Token());
    EXPECT_EQ(gateway->calls.at(0).path, "/services/services/secure/name/service/parent-id/parent");
    EXPECT_THROW(factory.Create("other", "service"), std::runtime_error);
}

class FixedFinder : public IServiceFinder {
public:
    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData>,
                                         Cancellation::Token token) override {
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
