#pragma once

#include "Platform/ICertificates.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Forwards everything to other certificates, the real ones unless told otherwise, records the calls in
/// order, and fails the operations that a test chose. Operations go by the names of their member functions.
/// For one thread.
class FaultyCertificates : public Platform::ICertificates {
public:
    explicit FaultyCertificates(
        Platform::ICertificates& inner = Platform::Production<Platform::ICertificates>())
        : inner(inner) {}

    /// Fails the n-th call of that operation, counted from 1; for n = 0, every call. "FindNext" then ends the
    /// walk and "EqualPublicKeys" says no.
    void Fail(const std::string& operation, int error, int n = 0) { faults[operation] = {error, n}; }

    std::vector<std::string> calls;
    int openStores = 0;        ///< stores that were opened and not closed
    std::size_t nameRoom = 0;  ///< bytes that the last caller had for a friendly name

    Platform::ValueOr<std::unique_ptr<Platform::ICertificateStore>> OpenStore(
        Platform::StoreLocation location, Platform::StoreAccess access, std::wstring_view name) override {
        if (const auto result = Record("OpenStore"); !result) return result;
        auto opened = inner.OpenStore(location, access, name);
        if (!opened) return opened;
        return std::unique_ptr<Platform::ICertificateStore>(
            std::make_unique<Store>(*this, std::move(*opened)));
    }

    Platform::ValueOr<std::unique_ptr<Platform::ICertificate>> CreateCertificate(
        std::span<const std::uint8_t> encoded) override {
        if (const auto result = Record("CreateCertificate"); !result) return result;
        return inner.CreateCertificate(encoded);
    }

    bool EqualPublicKeys(const Platform::CertificateContext& left,
                         const Platform::CertificateContext& right) override {
        return Record("EqualPublicKeys") && inner.EqualPublicKeys(left, right);
    }

    Platform::ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                                    std::uint32_t room) override {
        if (const auto result = Record("BinaryToBase64"); !result) return result;
        return inner.BinaryToBase64(binary, text, room);
    }

    Platform::ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                                    std::uint32_t room) override {
        if (const auto result = Record("Base64ToBinary"); !result) return result;
        return inner.Base64ToBinary(text, binary, room);
    }

private:
    using Context = Platform::CertificateContextPointer;

    class Store : public Platform::ICertificateStore {
    public:
        Store(FaultyCertificates& owner, std::unique_ptr<Platform::ICertificateStore> inner)
            : owner(owner), inner(std::move(inner)) {
            ++owner.openStores;
        }
        ~Store() override {
            owner.calls.push_back("Close");
            --owner.openStores;
        }

        Context FindNext(Context previous) override {
            return owner.Record("FindNext") ? inner->FindNext(previous) : nullptr;
        }
        Platform::ValueOr<std::uint32_t> GetFriendlyName(Context certificate,
                                                         std::span<std::uint8_t> buffer) override {
            owner.nameRoom = buffer.size();
            if (const auto result = owner.Record("GetFriendlyName"); !result) return result;
            return inner->GetFriendlyName(certificate, buffer);
        }
        Platform::Result Delete(Context certificate) override {
            const auto result = owner.Record("Delete");
            return result ? inner->Delete(certificate) : result;
        }
        Platform::ValueOr<Context> AddReplaceExisting(
            const Platform::CertificateContext& certificate) override {
            if (const auto result = owner.Record("AddReplaceExisting"); !result) return result;
            return inner->AddReplaceExisting(certificate);
        }
        Platform::Result SetFriendlyName(Context certificate, std::span<const std::uint8_t> name) override {
            const auto result = owner.Record("SetFriendlyName");
            return result ? inner->SetFriendlyName(certificate, name) : result;
        }

    private:
        FaultyCertificates& owner;
        const std::unique_ptr<Platform::ICertificateStore> inner;
    };

    struct Fault {
        int error = 0;
        int n = 0;
    };

    Platform::Result Record(const std::string& operation) {
        calls.push_back(operation);
        const auto fault = faults.find(operation);
        if (fault == faults.end()) return Platform::Result::Success();
        const auto made = std::count(calls.begin(), calls.end(), operation);
        if (fault->second.n != 0 && fault->second.n != made) return Platform::Result::Success();
        return Platform::Result::Failure(fault->second.error);
    }

    Platform::ICertificates& inner;
    std::map<std::string, Fault> faults;
};

}  // namespace Ombry::Tests
