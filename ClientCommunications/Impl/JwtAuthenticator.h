#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IOAuth2Client.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "LibraryLogger/ILogger.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace Ombry::ClientCommunications {

/// A token as it lies in the cache, with the time at which it was asked for and the service that it is for.
class JwtCachedToken : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    /// Whether the time that the service gave it is over. It is counted from before the token was asked for,
    /// so that an entry expires a little ahead of its token.
    bool IsExpired(TimePoint now) const;

    TimePoint lastRefreshed{};
    OAuth2Token token;
    std::string serviceName;
};

/// Puts a bearer token on each request, from a cache that outlives the process, and refreshes the tokens in
/// use on a thread of its own. Any number of threads may authenticate at once; `client` must bear that too.
class JwtAuthenticator : public IAuthenticator {
public:
    /// `cacheDirectory`: where the entries lie; whoever uses it must share this object. `freshnessLimit`: a
    /// token younger than this is taken for fresh when a service refuses it. `logger` may be null. Throws
    /// `std::system_error` if the thread cannot start.
    JwtAuthenticator(std::shared_ptr<IOAuth2Client> client, const std::string& cacheDirectory,
                     Duration freshnessLimit, std::shared_ptr<LibraryLogger::ILogger> logger);
    /// Ends a refresh in progress and joins the thread; may wait as that of `SSDCacheMaintainer`.
    ~JwtAuthenticator() override;
    JwtAuthenticator(const JwtAuthenticator&) = delete;
    JwtAuthenticator& operator=(const JwtAuthenticator&) = delete;

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                           Cancellation::Token token) override;
    bool AddFreshAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                                Cancellation::Token token) override;

private:
    struct KnownEntry;
    std::shared_ptr<const KnownEntry> getCachedToken(const std::string& serviceName);
    std::shared_ptr<const KnownEntry> EntryOf(const std::string& serviceName);
    std::shared_ptr<const KnownEntry> Learn(const std::string& serviceName, const KnownEntry& known,
                                            std::shared_ptr<const ReadEntry> read);
    void internalAddFreshAuthentication(const std::shared_ptr<IServiceRequest>& request,
                                        const std::string& serviceName, const Cancellation::Token& token);
    JwtCachedToken FetchToken(const std::string& serviceName, std::shared_ptr<IRootRequestMetaData> metaData,
                              const Cancellation::Token& token);
    void Forget(const std::string& serviceName);
    void ForgetUnusable(const std::set<std::string>& entryNames);
    void UseCached(const std::shared_ptr<const KnownEntry>& entry, IServiceRequest& request,
                   const std::string& serviceName);
    void MarkUsed(const std::string& serviceName);
    void maintenanceThread();
    void updateTokens();
    void removeExpiredTokens();

    /// The entry of a service: where it lies, what it held when it was last read, what that means, and what
    /// requests are given of it. Text, token and header are wiped with it.
    struct KnownEntry {
        ~KnownEntry() { Platform::SecureWipe(header); }

        std::string name;
        std::shared_ptr<const ReadEntry> read;
        std::shared_ptr<const JwtCachedToken> token;
        std::string header;
    };

    const std::shared_ptr<IOAuth2Client> client;
    const Duration freshnessLimit;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::shared_ptr<IRootRequestMetaData> maintenanceMetaData;
    DirectoryKeyValueStorage cache;  // guards itself
    std::mutex mutex;                // also pairs with condition; never held over I/O
    std::condition_variable condition;
    // Guarded by mutex:
    std::set<std::string> usedServices;
    std::map<std::string, std::shared_ptr<const KnownEntry>> entries;  // by service
    // End of what mutex guards.
    const Cancellation::Token stopToken;
    std::thread thread;
};

}  // namespace Ombry::ClientCommunications
