#include "ClientCommunications/Impl/KeyHash.h"

#include "ClientCommunications/Impl/Base64.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "Platform/ErrorNumber.h"
#include "Platform/IHash.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

// Throws if `outcome` is a failure, with its number behind `text`.
template <class Outcome>
void Require(const Outcome& outcome, const char* text) {
    if (!outcome) throw std::runtime_error(text + Platform::ErrorNumber(outcome.Error()));
}

std::string Sha256(const std::string& text) {
    const auto provider = Platform::Hash().AcquireProvider();
    Require(provider, "CryptAcquireContext failed with error: ");
    const auto hash = (*provider)->CreateSha256();
    Require(hash, "CryptCreateHash failed with error: ");
    Require((*hash)->Update(text), "CryptHashData failed with error: ");
    const auto size = (*hash)->GetSize();
    Require(size, "CryptGetHashParam failed to get hash size. error: ");
    OmbryZephCore::ZephIOBuffer value(*size);
    if (value.SetLength(*size) != OmbryZephCore::eRC_Success) {
        throw std::runtime_error("Failed to allocate memory for hash value. dwHashSize=" +
                                 std::to_string(*size));
    }
    Require((*hash)->GetValue({value.GetData(), *size}),
            "CryptGetHashParam failed to get hash value. error: ");
    return std::string(reinterpret_cast<const char*>(value.GetData()), *size);
}

}  // namespace

std::string getSHA256HashBase64Encoded(const std::string& text) {
    try {
        return Base64Encode(Sha256(text));
    } catch (const std::exception& failure) {
        throw std::runtime_error(std::string("getSHA256HashBase64Encoded failed. error: ") + failure.what());
    }
}

}  // namespace Ombry::ClientCommunications
