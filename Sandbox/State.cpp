#include "Sandbox/State.h"

#include "Platform/IRandom.h"
#include "Sandbox/FolderLock.h"
#include "Sandbox/Json.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Ombry::Sandbox {
namespace {

constexpr int HashRounds = 10000;
constexpr std::int64_t TokenAges[] = {60, 300, 900, 3600, 0};  // ends of the ages that are told apart
constexpr int BusyMilliseconds = 5000;  // how long another instance may hold the database

std::string HashSecret(const std::string& secret, const std::string& salt) {
    std::string hash(32, '\0');
    if (PKCS5_PBKDF2_HMAC(secret.data(), static_cast<int>(secret.size()),
                          reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
                          HashRounds, EVP_sha256(), static_cast<int>(hash.size()),
                          reinterpret_cast<unsigned char*>(hash.data())) != 1) {
        throw std::runtime_error("Cannot hash a secret.");
    }
    return hash;
}

std::string NewSalt() {
    std::array<std::uint8_t, 16> bytes;
    if (!Platform::Random().Bytes(bytes)) throw std::runtime_error("No random bytes.");
    return std::string(bytes.begin(), bytes.end());
}

// Roles are stored as one JSON array, in which the database can search for any text.
std::string JoinRoles(const std::vector<std::string>& roles) {
    return WriteJson([&](JsonWriter& writer) {
        writer.StartArray();
        for (const std::string& role : roles)
            WriteText(writer, role);
        writer.EndArray();
    });
}

// What makes the database of one version that of the next; the first makes one from nothing. Its version is
// the number of those that it has behind it. That of the first was not written down, so that it may be made
// again.
constexpr const char* Steps[] = {
    "CREATE TABLE IF NOT EXISTS clients (id TEXT PRIMARY KEY, salt BLOB NOT NULL, hash BLOB NOT NULL,"
    " description TEXT, datacenter TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS services (id TEXT PRIMARY KEY, name TEXT NOT NULL, client TEXT NOT NULL,"
    " url TEXT NOT NULL, cert TEXT NOT NULL, host TEXT NOT NULL, namespace TEXT NOT NULL,"
    " datacenter TEXT NOT NULL, roles TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS tokens (id TEXT PRIMARY KEY, subject TEXT NOT NULL, expires INTEGER NOT "
    "NULL);"
    "CREATE TABLE IF NOT EXISTS instances (url TEXT PRIMARY KEY, cert TEXT NOT NULL, datacenter TEXT NOT "
    "NULL);"
    "PRAGMA user_version=1;",
    "BEGIN;"
    "ALTER TABLE tokens ADD COLUMN issued INTEGER NOT NULL DEFAULT 0;"
    "CREATE INDEX tokens_by_end ON tokens (expires);"
    "ALTER TABLE instances ADD COLUMN seen INTEGER NOT NULL DEFAULT 0;"
    "PRAGMA user_version=2;"
    "COMMIT;",
};

}  // namespace

// One prepared statement with its values; text is bound as a blob of bytes only where it may hold any.
class State::Statement {
public:
    Statement(sqlite3* database, const char* sql, std::initializer_list<std::string> values)
        : database(database) {
        if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK) Fail();
        int index = 0;
        for (const std::string& value : values) {
            if (sqlite3_bind_text(statement, ++index, value.data(), static_cast<int>(value.size()),
                                  SQLITE_TRANSIENT) != SQLITE_OK) {
                Fail();
            }
        }
    }
    ~Statement() { sqlite3_finalize(statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // Whether there is a row.
    bool Step() {
        const int code = sqlite3_step(statement);
        if (code == SQLITE_ROW) return true;
        if (code != SQLITE_DONE) Fail();
        return false;
    }
    // Runs an insertion; false if its key is taken.
    bool Insert() {
        const int code = sqlite3_step(statement);
        if (code == SQLITE_CONSTRAINT) return false;
        if (code != SQLITE_DONE) Fail();
        return true;
    }
    bool Changed() {
        Step();
        return sqlite3_changes(database) > 0;
    }
    std::string Text(int column) const {
        const void* const data = sqlite3_column_blob(statement, column);
        const int size = sqlite3_column_bytes(statement, column);
        return data ? std::string(static_cast<const char*>(data), static_cast<std::size_t>(size))
                    : std::string();
    }
    std::int64_t Number(int column) const { return sqlite3_column_int64(statement, column); }

private:
    [[noreturn]] void Fail() {
        const std::string text = sqlite3_errmsg(database);
        sqlite3_finalize(statement);
        statement = nullptr;
        throw std::runtime_error("Database: " + text);
    }

    sqlite3* database;
    sqlite3_stmt* statement = nullptr;
};

State::State(const std::string& stateFolder) {
    // Instances that change a new database to a log written ahead at one time do not wait for each other: the
    // database calls it a deadlock.
    const FolderLock lock(stateFolder);
    const std::string path = stateFolder + "/state.sqlite";
    bool opened = sqlite3_open(path.c_str(), &database) == SQLITE_OK;
    if (opened) {
        sqlite3_busy_timeout(database, BusyMilliseconds);
        opened = Execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;") && BringUpToDate();
    }
    if (opened) return;
    const std::string text = sqlite3_errmsg(database);
    sqlite3_close(database);
    throw std::runtime_error("Cannot open '" + path + "': " + text);
}

State::~State() {
    sqlite3_close(database);
}

bool State::Execute(const char* sql) {
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool State::BringUpToDate() {
    std::string version;
    {
        Statement statement(database, "PRAGMA user_version", {});
        statement.Step();
        version = statement.Text(0);
    }
    for (std::size_t done = std::stoul(version); done < std::size(Steps); ++done) {
        if (!Execute(Steps[done])) return false;
    }
    return true;
}

bool State::AddClient(const ClientRecord& client) {
    const std::string salt = NewSalt();
    const std::string hash = HashSecret(client.secret, salt);
    std::lock_guard guard(mutex);
    return Statement(database, "INSERT INTO clients VALUES (?,?,?,?,?)",
                     {client.id, salt, hash, client.description, client.datacenterId})
        .Insert();
}

bool State::HasClient(const std::string& id) {
    std::lock_guard guard(mutex);
    return Statement(database, "SELECT 1 FROM clients WHERE id=?", {id}).Step();
}

bool State::IsClientSecret(const std::string& id, const std::string& secret) {
    std::string salt;
    std::string hash;
    {
        std::lock_guard guard(mutex);
        Statement statement(database, "SELECT salt, hash FROM clients WHERE id=?", {id});
        if (!statement.Step()) return false;
        salt = statement.Text(0);
        hash = statement.Text(1);
    }
    const std::string offered = HashSecret(secret, salt);
    return offered.size() == hash.size() && CRYPTO_memcmp(offered.data(), hash.data(), hash.size()) == 0;
}

bool State::RemoveClient(const std::string& id) {
    std::lock_guard guard(mutex);
    // Its tokens stop working with it. What is no client may be the subject of a user's tokens, which stay.
    Statement(database, "DELETE FROM tokens WHERE subject IN (SELECT id FROM clients WHERE id=?)", {id})
        .Step();
    return Statement(database, "DELETE FROM clients WHERE id=?", {id}).Changed();
}

bool State::AddService(const ServiceRecord& service) {
    std::lock_guard guard(mutex);
    return Statement(database, "INSERT INTO services VALUES (?,?,?,?,?,?,?,?,?)",
                     {service.id, service.name, service.clientId, service.endpointUrl, service.endpointCert,
                      service.hostname, service.nameSpace, service.datacenterId, JoinRoles(service.roles)})
        .Insert();
}

bool State::RemoveService(const std::string& id) {
    std::lock_guard guard(mutex);
    return Statement(database, "DELETE FROM services WHERE id=?", {id}).Changed();
}

std::vector<ServiceRecord> State::FindServices(const ServiceQuery& query) {
    // A part that was given is passed behind a "1", one that was not as "0": a query for everything needs no
    // other text.
    const auto given = [](const std::optional<std::string>& part) {
        return part ? "1" + *part : std::string("0");
    };
    std::lock_guard guard(mutex);
    Statement statement(
        database,
        "SELECT id, name, client, url, cert, host, namespace, datacenter FROM services WHERE "
        "(?1='0' OR '1'||id=?1) AND (?2='0' OR '1'||name=?2) AND (?3='0' OR '1'||client=?3) AND "
        "(?4='0' OR EXISTS (SELECT 1 FROM json_each(roles) WHERE value=substr(?4,2))) AND (?5='0' OR "
        "'1'||namespace=?5) AND "
        "(?6='0' OR '1'||host=?6) ORDER BY id",
        {given(query.id), given(query.name), given(query.parentId), given(query.role), given(query.nameSpace),
         given(query.host)});
    std::vector<ServiceRecord> services;
    while (statement.Step()) {
        services.push_back({statement.Text(0),
                            statement.Text(1),
                            statement.Text(2),
                            statement.Text(3),
                            statement.Text(4),
                            statement.Text(5),
                            statement.Text(6),
                            statement.Text(7),
                            {}});
    }
    return services;
}

void State::AddToken(const std::string& id, const std::string& subject, std::int64_t issued,
                     std::int64_t expires) {
    std::lock_guard guard(mutex);
    Statement(database, "INSERT INTO tokens (id, subject, issued, expires) VALUES (?,?,?,?)",
              {id, subject, std::to_string(issued), std::to_string(expires)})
        .Insert();
}

bool State::HasToken(const std::string& id) {
    std::lock_guard guard(mutex);
    return Statement(database, "SELECT 1 FROM tokens WHERE id=?", {id}).Step();
}

void State::AddInstance(const InstanceRecord& instance, std::int64_t seen) {
    std::lock_guard guard(mutex);
    Statement(database, "INSERT OR REPLACE INTO instances (url, cert, datacenter, seen) VALUES (?,?,?,?)",
              {instance.baseUrl, instance.certificate, instance.datacenterId, std::to_string(seen)})
        .Step();
}

void State::RemoveInstance(const std::string& baseUrl) {
    std::lock_guard guard(mutex);
    Statement(database, "DELETE FROM instances WHERE url=?", {baseUrl}).Step();
}

std::vector<InstanceRecord> State::Instances() {
    std::lock_guard guard(mutex);
    Statement statement(database, "SELECT url, cert, datacenter, seen FROM instances ORDER BY url", {});
    std::vector<InstanceRecord> instances;
    while (statement.Step())
        instances.push_back({statement.Text(0), statement.Text(1), statement.Text(2), statement.Number(3)});
    return instances;
}

Summary State::Summarize(std::int64_t now, int most) {
    const std::string limit = std::to_string(most);
    Summary summary;
    for (const std::int64_t below : TokenAges)
        summary.tokens.push_back({below});
    std::lock_guard guard(mutex);
    Statement counts(database, "SELECT (SELECT count(*) FROM clients), (SELECT count(*) FROM services)", {});
    counts.Step();
    summary.clients = counts.Number(0);
    summary.services = counts.Number(1);
    Statement clients(database,
                      "SELECT substr(id,1,200), substr(description,1,200), datacenter,"
                      " (SELECT count(*) FROM services WHERE client=clients.id)"
                      " FROM clients ORDER BY rowid DESC LIMIT CAST(? AS INTEGER)",
                      {limit});
    while (clients.Step())
        summary.newestClients.push_back(
            {clients.Text(0), clients.Text(1), clients.Text(2), clients.Number(3)});
    Statement services(database,
                       "SELECT id, substr(name,1,200), substr(client,1,200), substr(url,1,200),"
                       " substr(host,1,200), substr(namespace,1,200), datacenter"
                       " FROM services ORDER BY rowid DESC LIMIT CAST(? AS INTEGER)",
                       {limit});
    while (services.Step()) {
        ServiceRecord service;
        service.id = services.Text(0);
        service.name = services.Text(1);
        service.clientId = services.Text(2);
        service.endpointUrl = services.Text(3);
        service.hostname = services.Text(4);
        service.nameSpace = services.Text(5);
        service.datacenterId = services.Text(6);
        summary.newestServices.push_back(std::move(service));
    }
    // No client's id holds a colon.
    Statement tokens(database,
                     "SELECT ?1-issued, subject GLOB 'user:*' FROM tokens WHERE expires>CAST(?1 AS INTEGER)",
                     {std::to_string(now)});
    while (tokens.Step()) {
        const auto age = std::find_if(
            summary.tokens.begin(), summary.tokens.end(),
            [&](const Summary::TokenAge& each) { return each.below == 0 || tokens.Number(0) < each.below; });
        ++(tokens.Number(1) ? age->users : age->clients);
    }
    return summary;
}

void State::RemoveExpired(std::int64_t now, std::int64_t seenSince) {
    std::lock_guard guard(mutex);
    Statement(database, "DELETE FROM tokens WHERE expires<=CAST(? AS INTEGER)", {std::to_string(now)}).Step();
    Statement(database, "DELETE FROM instances WHERE seen<CAST(? AS INTEGER)", {std::to_string(seenSince)})
        .Step();
}

}  // namespace Ombry::Sandbox
