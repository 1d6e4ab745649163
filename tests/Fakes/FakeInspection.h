#pragma once

#include "Platform/IInspection.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Looks at the real machine, and sees some of it as the test says.
class FakeInspection : public Platform::IInspection {
public:
    Platform::ValueOr<Platform::FileDetails> Details(const std::string& path) override {
        if (path.starts_with(forbidden) && !forbidden.empty()) return Platform::Result::Failure(Forbidden);
        if (const auto error = errors.find(path); error != errors.end())
            return Platform::Result::Failure(error->second);
        return Altered(path, real.Details(path));
    }
    Platform::ValueOr<Platform::FileDetails> Target(const std::string& path) override {
        if (path.starts_with(forbidden) && !forbidden.empty()) return Platform::Result::Failure(Forbidden);
        return Altered(path, real.Target(path));
    }
    Platform::ValueOr<std::vector<std::string>> Names(const std::string& folder, std::size_t most) override {
        if (const auto error = errors.find(folder + "/"); error != errors.end())
            return Platform::Result::Failure(error->second);
        return real.Names(folder, most);
    }
    Platform::ValueOr<std::string> Read(const std::string& path, std::uint64_t longest) override {
        if (path == watched) ++reads;
        return real.Read(path, longest);
    }
    bool MeansForbidden(int error) override { return error == Forbidden || real.MeansForbidden(error); }
    std::uint32_t User() override { return user ? *user : real.User(); }
    std::optional<std::int64_t> LockHolder(const Platform::FileDetails& details) override {
        return holder ? holder : real.LockHolder(details);
    }
    bool IsUnnamed(std::string_view fileName) override { return real.IsUnnamed(fileName); }
    Platform::ValueOr<std::string> StoreFolder(std::wstring_view name) override {
        return real.StoreFolder(name);
    }
    Platform::ValueOr<Platform::KeyState> MachineKey() override {
        auto key = real.MachineKey();
        if (key && keyVerdict) key->verdict = *keyVerdict;
        if (key && keyError != 0) key->error = keyError;
        return key;
    }
    Platform::IMachineProtection& Deciphering() override { return real.Deciphering(); }
    Platform::ValueOr<Platform::CertificateFacts> Facts(
        const Platform::CertificateContext& certificate) override {
        if (isNoCertificate) return Platform::Result::Failure(EINVAL);
        return real.Facts(certificate);
    }
    bool TakesColours() override { return takesColours; }

    static constexpr int Forbidden = 13;

    std::map<std::string, std::uint32_t> owners;  ///< by path
    /// Failures by path: of a look at it, or, with a solidus behind it, at the names in it.
    std::map<std::string, int> errors;
    /// Changes what a look at a path gives.
    std::function<void(const std::string& path, Platform::FileDetails& details)> alter;
    std::string forbidden;                                  ///< what begins so may not be looked at
    std::optional<std::uint32_t> user;                      ///< in the place of who runs the test
    std::optional<std::int64_t> holder;                     ///< of each lock
    std::optional<Platform::KeyState::Verdict> keyVerdict;  ///< in the place of what the key's file says
    int keyError = 0;                                       ///< likewise, unless it is 0
    bool takesColours = false;
    bool isNoCertificate = false;  ///< whatever is shown
    std::string watched;           ///< a path
    std::atomic<int> reads = 0;    ///< of that

private:
    using FoundDetails = Platform::ValueOr<Platform::FileDetails>;

    FoundDetails Altered(const std::string& path, FoundDetails details) const {
        const auto owner = owners.find(path);
        if (details && alter) alter(path, *details);
        if (details && owner != owners.end()) details->owner = owner->second;
        return details;
    }

    Platform::IInspection& real = Platform::Production<Platform::IInspection>();
};

}  // namespace Ombry::Tests
