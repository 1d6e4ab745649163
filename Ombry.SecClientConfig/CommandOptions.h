#pragma once

#include "ClientCommunications/IClientCommunications.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::SecClientConfig {

/// A name that a command knows, and the string that takes its value. An option counts as given when that
/// string is not empty; there is no other record, so an empty value is no value.
struct Option {
    std::string name;
    std::string& target;
};

/// Who is acting, as given on the command line; password and token are wiped with it.
struct Identity {
    ~Identity();

    std::string userName;
    std::string password;
    std::string clientName;
    std::string token;
};

/// Reads the pairs of name and value from `argv[2]` on, then runs the command's `checks`, which set the flag
/// that they are given. All faults of one call are reported together on the standard error stream, with a
/// blank line behind them. Returns whether the command may do its work; if not, its usage is to follow.
bool ReadOptions(int argc, char** argv, const std::vector<Option>& options,
                 const std::function<void(bool& error)>& checks);

/// The options of a command that takes every kind of identity: -u, -p, -n and -t, then its `own`.
std::vector<Option> WithIdentity(Identity& identity, const std::vector<Option>& own);

/// Whether `arg` is `name`. If it is, `value` goes to `target`, unless that holds one already: the first
/// stays, and the second is an error.
bool TakeOption(const std::string& name, std::string& target, bool& error, const std::string& arg,
                const std::string& value);

/// Reports an error if `value` is empty.
void RequireOption(const std::string& name, const std::string& value, bool& error);

/// Reports at most one error unless exactly one identity was given: a user with a password, a client, or a
/// token.
void CheckIdentity(const std::string& userName, const std::string& password, const std::string& clientName,
                   const std::string& token, bool& error);

void CheckIdentity(const Identity& identity, bool& error);

/// What acts as this identity, on the configured machine; throws as the function of that name does.
std::shared_ptr<ClientCommunications::IClientCommunications> MakeCommunications(const Identity& identity);

/// Writes "ERROR: ", `text` and a new line to the standard error stream and sets `error`.
void ReportError(const std::string& text, bool& error);

}  // namespace Ombry::SecClientConfig
