#include "ClientCommunications/Impl/JwtAuthenticator.h"

#include "ClientCommunications/Impl/BearerHeader.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "LibraryLogger/LogCall.h"
#include "ObjectMapping/DateTime.h"
#include "ObjectMapping/Serialization.h"
#include "Platform/IClock.h"
#include "Platform/IRandom.h"

#include <algorithm>
#include <limits>

namespace Ombry::ClientCommunications {
namespace {

using LibraryLogger::LogCall;

constexpr const char* AddName = "Ombry::ClientCommunications::JwtAuthenticator::AddAuthentication";
constexpr const char* AddFreshName = "Ombry::ClientCommunications::JwtAuthenticator::AddFreshAuthentication";
constexpr const char* InternalAddName =
    "Ombry::ClientCommunications::JwtAuthenticator::internalAddFreshAuthentication";
constexpr const char* UpdateName = "Ombry::ClientCommunications::JwtAuthenticator::updateTokens";
constexpr const char* RemoveName = "Ombry::ClientCommunications::JwtAuthenticator::removeExpiredTokens";
constexpr const char* ThreadName = "Ombry::ClientCommunications::JwtAuthenticator::maintenanceThread";

}  // namespace

void JwtCachedToken::Map(ObjectMapping::MapperIf& mapper) {
    ObjectMapping::MapDateTime(mapper, "lastRefreshed", lastRefreshed, nullptr);
    mapper.Field("token", token, nullptr);
    bool hasServiceName = true;  // always written; entries of older programs lack it
    mapper.Field("servicename", serviceName, &hasServiceName);
}

void JwtCachedToken::Reset() {
    token.Reset();
    *this = JwtCachedToken();
}

bool JwtCachedToken::IsExpired(TimePoint now) const {
    // The service's integer has the width of a long, which is 64 bits on one system and 32 on another.
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    const auto seconds = static_cast<std::int64_t>(std::min<std::uint64_t>(token.expiresIn, most));
    return now > SaturatingAdd(lastRefreshed, Duration(SecondsToTicks(seconds)));
}

JwtAuthenticator::JwtAuthenticator(std::shared_ptr<IOAuth2Client> client, const std::string& cacheDirectory,
                                   Duration freshnessLimit, std::shared_ptr<LibraryLogger::ILogger> logger)
    : client(std::move(client)),
      freshnessLimit(freshnessLimit),
      logger(std::move(logger)),
      maintenanceMetaData(RootRequestMetaData::createInfrastructure("UpdateJwtToken")),
      cache(cacheDirectory),
      stopToken(Cancellation::CreateCancellable()),
      thread(&JwtAuthenticator::maintenanceThread, this) {}

JwtAuthenticator::~JwtAuthenticator() {
    {
        std::lock_guard guard(mutex);
        stopToken.Cancel();
        condition.notify_all();
    }
    thread.join();
}

void JwtAuthenticator::AddAuthentication(std::shared_ptr<IServiceRequest> request,
                                         std::shared_ptr<IService> service, Cancellation::Token token) {
    const std::string serviceName = service->GetName();
    const auto cached = getCachedToken(serviceName);
    if (!cached) {
        internalAddFreshAuthentication(request, serviceName, token);
        return;
    }
    UseCached(cached, *request, serviceName);
    LogCall(logger, AddName, 0, "Using cached token for ", serviceName);
}

bool JwtAuthenticator::AddFreshAuthentication(std::shared_ptr<IServiceRequest> request,
                                              std::shared_ptr<IService> service, Cancellation::Token token) {
    const std::string serviceName = service->GetName();
    const auto cached = getCachedToken(serviceName);
    // Somebody else has just refreshed this token: asking again would gain nothing. A clock that was set back
    // makes the age negative, which counts as fresh too.
    const bool isFresh =
        cached && Platform::Clock().Now() < SaturatingAdd(cached->token->lastRefreshed, freshnessLimit);
    if (isFresh) {
        UseCached(cached, *request, serviceName);
        LogCall(logger, AddFreshName, 0, "Using recently cached token for ", serviceName);
    } else {
        internalAddFreshAuthentication(request, serviceName, token);
    }
    return true;
}

// The entry with the usable token of a service; null if there is none. The entry is looked at on the disk
// each time, since other processes replace it; but it is read only if it may be another one than last time,
// and parsed only if it is.
std::shared_ptr<const JwtAuthenticator::KnownEntry> JwtAuthenticator::getCachedToken(
    const std::string& serviceName) {
    std::shared_ptr<const KnownEntry> entry = EntryOf(serviceName);
    std::shared_ptr<const ReadEntry> read = cache.Reread(entry->name, entry->read);
    if (read->text.empty()) {
        Forget(serviceName);
        return nullptr;
    }
    if (read != entry->read) entry = Learn(serviceName, *entry, std::move(read));
    if (!entry->token->IsExpired(Platform::Clock().Now())) {
        return entry->token->token.accessToken.empty() ? nullptr : entry;
    }
    cache.RemoveEntry(entry->name);
    Forget(serviceName);
    return nullptr;
}

// Whoever still uses the token keeps it until then; with the last of them it is wiped.
void JwtAuthenticator::Forget(const std::string& serviceName) {
    std::lock_guard guard(mutex);
    entries.erase(serviceName);
}

std::shared_ptr<const JwtAuthenticator::KnownEntry> JwtAuthenticator::EntryOf(
    const std::string& serviceName) {
    {
        std::lock_guard guard(mutex);
        const auto known = entries.find(serviceName);
        if (known != entries.end()) return known->second;
    }
    const auto entry = std::make_shared<KnownEntry>();
    entry->name = DirectoryKeyValueStorage::EntryNameOf(serviceName);
    std::lock_guard guard(mutex);
    return entries.try_emplace(serviceName, entry).first->second;
}

// Keeps what was read of an entry, and what it means.
std::shared_ptr<const JwtAuthenticator::KnownEntry> JwtAuthenticator::Learn(
    const std::string& serviceName, const KnownEntry& known, std::shared_ptr<const ReadEntry> read) {
    std::shared_ptr<const JwtCachedToken> token = known.token;
    if (!token || known.read->text != read->text) {
        auto parsed = std::make_shared<JwtCachedToken>();
        ObjectMapping::DeserializeObject(*parsed, read->text, nullptr, false);
        token = std::move(parsed);
    }
    const auto entry = std::make_shared<KnownEntry>();
    entry->name = known.name;
    entry->read = std::move(read);
    entry->header = BearerValueOf(token->token.accessToken);
    entry->token = std::move(token);
    std::lock_guard guard(mutex);
    return entries[serviceName] = entry;
}

void JwtAuthenticator::internalAddFreshAuthentication(const std::shared_ptr<IServiceRequest>& request,
                                                      const std::string& serviceName,
                                                      const Cancellation::Token& token) {
    const JwtCachedToken cached =
        FetchToken(serviceName, RootRequestMetaData::getFromRequest(request), token);
    MarkUsed(serviceName);
    LogCall(logger, InternalAddName, 0, "Using fresh token for ", serviceName);
    SetBearerHeader(*request, cached.token.accessToken);
}

// Asks for a token and stores it. A failure leaves the cache as it was.
JwtCachedToken JwtAuthenticator::FetchToken(const std::string& serviceName,
                                            std::shared_ptr<IRootRequestMetaData> metaData,
                                            const Cancellation::Token& token) {
    JwtCachedToken cached;
    cached.lastRefreshed = Platform::Clock().Now();
    cached.serviceName = serviceName;
    cached.token = client->GetToken(serviceName, std::move(metaData), token);
    std::string text = ObjectMapping::SerializeObject(cached, nullptr);
    const ScopedWipe wipe(text);
    cache.SetByKey(serviceName, text);
    Forget(
        serviceName);  // the one that it replaced: nobody else would wipe it if the service is not used again
    return cached;
}

void JwtAuthenticator::UseCached(const std::shared_ptr<const KnownEntry>& entry, IServiceRequest& request,
                                 const std::string& serviceName) {
    MarkUsed(serviceName);
    SetSharedHeader(request, KnownHeader::Authorization, {entry, &entry->header});
}

void JwtAuthenticator::MarkUsed(const std::string& serviceName) {
    std::lock_guard guard(mutex);
    usedServices.insert(serviceName);
}

void JwtAuthenticator::maintenanceThread() {
    LogCall(logger, ThreadName, 0, "Thread starting");
    std::mt19937 generator(Platform::Random().SeedWord());
    // Up to twelve hours, so that many clients do not all refresh at one time.
    std::uniform_int_distribution<int> minutes(0, 720);
    while (!stopToken.IsCancelled()) {
        const std::chrono::minutes wait(minutes(generator));
        {
            std::unique_lock lock(mutex);
            Platform::WaitFor(condition, lock, wait, [this] { return stopToken.IsCancelled(); });
        }
        updateTokens();
        removeExpiredTokens();
    }
    LogCall(logger, ThreadName, 0, "Thread exiting");
}

// Refreshes the tokens that were used since the last pass. One that is not used again before the next drops
// out.
void JwtAuthenticator::updateTokens() {
    std::set<std::string> services;
    {
        std::lock_guard guard(mutex);
        services.swap(usedServices);
    }
    for (const std::string& serviceName : services) {
        try {
            LogCall(logger, UpdateName, 0, "Refreshing token for ", serviceName);
            FetchToken(serviceName, maintenanceMetaData, stopToken);
        } catch (const std::exception& failure) {
            LogCall(logger, UpdateName, 3, "Caught exception '", failure.what(),
                    "' when trying to refresh token for ", serviceName);
        }
        if (stopToken.IsCancelled()) return;
    }
}

// There is no handler here: an entry that cannot be parsed ends the process. Only this class writes entries,
// and whole, so such an entry is the work of a foreign hand, which is not to go unnoticed.
void JwtAuthenticator::removeExpiredTokens() {
    const std::set<std::string> entryNames = cache.getEntriesNames();
    for (const std::string& entryName : entryNames) {
        std::string text = cache.GetEntry(entryName);
        const ScopedWipe wipe(text);
        if (text.empty()) continue;
        JwtCachedToken cached;
        ObjectMapping::DeserializeObject(cached, text, nullptr, false);
        if (!cached.IsExpired(Platform::Clock().Now())) continue;
        LogCall(logger, RemoveName, 0, "Removing expired token for ", cached.serviceName);
        cache.RemoveEntry(entryName);  // by its entry name: a hash cannot be turned back into its key
    }
    ForgetUnusable(entryNames);
}

// What memory holds of entries that expired, or that lay on the disk no longer when the pass began.
void JwtAuthenticator::ForgetUnusable(const std::set<std::string>& entryNames) {
    const TimePoint now = Platform::Clock().Now();
    std::lock_guard guard(mutex);
    std::erase_if(entries, [&](const auto& known) {
        const KnownEntry& entry = *known.second;
        return !entryNames.contains(entry.name) || (entry.token && entry.token->IsExpired(now));
    });
}

}  // namespace Ombry::ClientCommunications
