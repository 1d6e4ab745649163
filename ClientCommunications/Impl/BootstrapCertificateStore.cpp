#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "Platform/Base64Text.h"
#include "Platform/ErrorNumber.h"
#include "Platform/ICertificates.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace Ombry::ClientCommunications {
namespace {

using Platform::CertificateContextPointer;
using Platform::ICertificateStore;
using Platform::StoreAccess;
using Platform::StoreLocation;

constexpr const char* SaveFunction = "Ombry::ClientCommunications::ClientConfig::saveBootstrapCertificate: ";
constexpr const char* ReadFunction =
    "Ombry::ClientCommunications::ClientCommunications::getBootstrapSsdsCertificate: ";

constexpr std::size_t FriendlyNameSize = 2 * sizeof BootstrapCertificateName;
static_assert(FriendlyNameSize == 52);

// The name as the store keeps it: UTF-16LE with its terminator.
constexpr std::array<std::uint8_t, FriendlyNameSize> MakeFriendlyName() {
    std::array<std::uint8_t, FriendlyNameSize> bytes{};
    for (std::size_t i = 0; i < FriendlyNameSize / 2; ++i) {
        bytes[2 * i] = static_cast<std::uint8_t>(BootstrapCertificateName[i]);
    }
    return bytes;
}

constexpr std::array<std::uint8_t, FriendlyNameSize> FriendlyName = MakeFriendlyName();

// Throws if `outcome` is a failure of `operation`.
template <class Outcome>
void Require(const Outcome& outcome, const char* function, const char* operation) {
    if (outcome) return;
    throw std::runtime_error(std::string(function) + operation +
                             " failed with last error = " + Platform::ErrorNumber(outcome.Error()));
}

StoreLocation LocationOf(const CommunicationsParameters& parameters) {
    return parameters.useCurrentUserStore ? StoreLocation::CurrentUser : StoreLocation::LocalMachine;
}

// The first certificate with the bootstrap name behind `previous`; null if there is none. One without a
// name, or with one that does not fit in 64 bytes, is passed over.
CertificateContextPointer FindBootstrapCertificate(ICertificateStore& store,
                                                   CertificateContextPointer previous = nullptr) {
    std::array<std::uint8_t, 64> name;
    for (auto certificate = store.FindNext(previous); certificate;
         certificate = store.FindNext(certificate)) {
        const auto size = store.GetFriendlyName(certificate, name);
        if (size &&
            std::equal(name.begin(), name.begin() + *size, FriendlyName.begin(), FriendlyName.end())) {
            return certificate;
        }
    }
    return nullptr;
}

}  // namespace

void saveBootstrapCertificate(const CommunicationsParameters& parameters,
                              OmbryZephCore::ZephIOBuffer& certificate) {
    const auto store = Platform::Certificates().OpenStore(LocationOf(parameters), StoreAccess::ReadWrite,
                                                          parameters.storeName);
    Require(store, SaveFunction, "CertOpenStore");
    // Deleting ends a walk, so each starts from the beginning.
    while (const auto old = FindBootstrapCertificate(**store)) {
        Require((*store)->Delete(old), SaveFunction, "CertDeleteCertificateFromStore");
    }
    const auto created =
        Platform::Certificates().CreateCertificate({certificate.GetData(), certificate.GetLength()});
    Require(created, SaveFunction, "CertCreateCertificateContext");
    const auto stored = (*store)->AddReplaceExisting((*created)->Context());
    // Adding has no message of its own: those who read the logs know this failure by the text of the
    // deletion.
    Require(stored, SaveFunction, "CertDeleteCertificateFromStore");
    Require((*store)->SetFriendlyName(*stored, FriendlyName), SaveFunction,
            "CertSetCertificateContextProperty");
}

std::vector<std::string> getBootstrapCertificates(const CommunicationsParameters& parameters) {
    const auto store = Platform::Certificates().OpenStore(
        LocationOf(parameters), StoreAccess::ReadOnlyUnlocked, parameters.storeName);
    Require(store, ReadFunction, "CertOpenStore");
    std::vector<std::string> certificates;
    for (auto found = FindBootstrapCertificate(**store); found;
         found = FindBootstrapCertificate(**store, found)) {
        certificates.emplace_back(reinterpret_cast<const char*>(found->encoded), found->encodedLength);
    }
    return certificates;
}

std::string getBootstrapSsdsCertificate(const CommunicationsParameters& parameters) {
    const auto store = Platform::Certificates().OpenStore(
        LocationOf(parameters), StoreAccess::ReadOnlyExisting, parameters.storeName);
    Require(store, ReadFunction, "CertOpenStore");
    const CertificateContextPointer found = FindBootstrapCertificate(**store);
    if (!found) {
        throw std::runtime_error(std::string(ReadFunction) + "Failed to find bootstrap SSDS certificate.");
    }
    auto text = Platform::Base64Text({found->encoded, found->encodedLength});
    Require(text, ReadFunction, "CryptBinaryToStringA");
    return std::move(*text);
}

}  // namespace Ombry::ClientCommunications
