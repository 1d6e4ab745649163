#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Sandbox {

struct ClientRecord {
    std::string id;
    std::string secret;  ///< plain on the way in only; stored as a salted hash
    std::string description;
    std::string datacenterId;
};

struct ServiceRecord {
    std::string id;
    std::string name;
    std::string clientId;
    std::string endpointUrl;
    std::string endpointCert;
    std::string hostname;
    std::string nameSpace;
    std::string datacenterId;
    std::vector<std::string> roles;
};

struct InstanceRecord {
    std::string baseUrl;
    std::string certificate;
    std::string datacenterId;
    std::int64_t seen = 0;  ///< when it last said that it is there, in seconds since 1970
};

/// How services are looked up: all given parts must match.
struct ServiceQuery {
    std::optional<std::string> id = {};
    std::optional<std::string> name = {};
    std::optional<std::string> parentId = {};
    std::optional<std::string> role = {};
    std::optional<std::string> nameSpace = {};
    std::optional<std::string> host = {};
};

/// What there is, for people to look at: nothing in it is secret.
struct Summary {
    struct Client {
        std::string id;
        std::string description;
        std::string datacenterId;
        std::int64_t services = 0;
    };
    struct TokenAge {
        std::int64_t below = 0;  ///< seconds since they were issued; the last one has no end, and 0 here
        std::int64_t users = 0;
        std::int64_t clients = 0;
    };
    std::int64_t clients = 0;
    std::int64_t services = 0;
    std::vector<Client> newestClients;
    std::vector<ServiceRecord> newestServices;
    std::vector<TokenAge> tokens;  ///< those that have not expired
};

/// What the service knows, in an SQLite file that several instances may share. It survives a restart. Any
/// thread may call it. Failures of the database are `std::runtime_error`.
class State {
public:
    explicit State(const std::string& stateFolder);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// False if the id is taken.
    bool AddClient(const ClientRecord& client);
    bool HasClient(const std::string& id);
    bool IsClientSecret(const std::string& id, const std::string& secret);
    bool RemoveClient(const std::string& id);

    bool AddService(const ServiceRecord& service);
    bool RemoveService(const std::string& id);
    std::vector<ServiceRecord> FindServices(const ServiceQuery& query);

    /// Times are in seconds since 1970.
    void AddToken(const std::string& id, const std::string& subject, std::int64_t issued,
                  std::int64_t expires);
    bool HasToken(const std::string& id);

    /// An instance that is there already is seen again; the record's own time does not matter.
    void AddInstance(const InstanceRecord& instance, std::int64_t seen);
    void RemoveInstance(const std::string& baseUrl);
    std::vector<InstanceRecord> Instances();

    /// At most so many of the newest of each. Long texts are cut.
    Summary Summarize(std::int64_t now, int most);

    /// Removes tokens that have expired by `now`, and instances that were last seen before `seenSince`.
    void RemoveExpired(std::int64_t now, std::int64_t seenSince);

private:
    class Statement;

    bool Execute(const char* sql);
    bool BringUpToDate();

    std::mutex mutex;
    sqlite3* database = nullptr;  // guarded by mutex
};

}  // namespace Ombry::Sandbox
