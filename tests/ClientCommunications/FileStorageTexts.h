#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

inline std::string ReadFailure(const std::string& path) {
    return "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + path + "' for read.";
}

inline std::string WriteFailure(const std::string& path) {
    return "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + path + "' for write.";
}

/// The text of the `std::runtime_error` that `act` throws; other types are told apart by their name.
template <class Act>
std::string TextOfRuntimeError(const Act& act) {
    try {
        act();
    } catch (const std::filesystem::filesystem_error&) {
        return "a filesystem_error";
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "nothing thrown";
}

}  // namespace Ombry::Tests
