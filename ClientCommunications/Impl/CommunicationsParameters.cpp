#include "ClientCommunications/CommunicationsParameters.h"

#include "ClientCommunications/Impl/FileStorage.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "Platform/ErrorNumber.h"
#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "Platform/SecureWipe.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

// The text between the first "<DatacenterId>" and the next "<", as it stands; empty if there is none.
std::string FindDatacenterIdElement(const std::string& text) {
    constexpr std::string_view mark = "<DatacenterId>";
    const std::size_t found = text.find(mark);
    if (found == std::string::npos) return std::string();
    const std::size_t begin = found + mark.size();
    const std::size_t end = text.find('<', begin);
    if (end == std::string::npos) return std::string();
    return text.substr(begin, end - begin);
}

std::runtime_error ConversionFailure(int error) {
    return std::runtime_error("GetProgramDataQuennetPath: conversion to UTF-8 failed with error " +
                              Platform::ErrorNumber(error));
}

}  // namespace

CommunicationsParameters::CommunicationsParameters(const std::string& clientName) : clientName(clientName) {
    const std::string base = GetProgramDataQuennetPath();
    securityDirectory = base + MachineFiles::SecurityDirectory;
    cacheDirectory = DefaultCacheDirectory();
    commonConfigPath = base + MachineFiles::CommonConfig;
}

CommunicationsParameters::~CommunicationsParameters() {
    Platform::SecureWipe(password);
    Platform::SecureWipe(fixedToken);
}

void CommunicationsParameters::SetPassword(const std::string& text) {
    Platform::ReplaceSecret(password, text);
}

void CommunicationsParameters::SetFixedToken(const std::string& token) {
    Platform::ReplaceSecret(fixedToken, token);
}

std::string CommunicationsParameters::DefaultCacheDirectory() const {
    return securityDirectory + MachineFiles::Caches + (userName.empty() ? clientName : userName);
}

void CommunicationsParameters::SetClientName(const std::string& name) {
    const bool isDefault = cacheDirectory == DefaultCacheDirectory();
    clientName = name;
    if (isDefault) cacheDirectory = DefaultCacheDirectory();
}

void CommunicationsParameters::SetSecurityDirectory(const std::string& directory) {
    const bool isDefault = cacheDirectory == DefaultCacheDirectory();
    securityDirectory = directory;
    if (isDefault) cacheDirectory = DefaultCacheDirectory();
}

std::string GetProgramDataQuennetPath() {
    const auto folder = Platform::KnownFolders().ProgramDataQuennet();
    if (!folder) {
        throw std::runtime_error("Ombry::ClientCommunications: SHGetFolderPath failed with error " +
                                 std::to_string(folder.Error()));
    }
    const auto size = Platform::TextConversion().WideToUtf8(*folder, nullptr, 0);
    if (size.count <= 0) throw ConversionFailure(size.error);
    std::string path(static_cast<std::size_t>(size.count), '\0');
    const auto converted = Platform::TextConversion().WideToUtf8(*folder, path.data(), path.size());
    if (converted.count <= 0) throw ConversionFailure(converted.error);
    return path;
}

std::string GetDatacenterId(const CommunicationsParameters& parameters) {
    std::string id = FindDatacenterIdElement(FileStorage(parameters.commonConfigPath, false).Load());
    if (!id.empty()) return id;
    return FileStorage(parameters.securityDirectory + MachineFiles::DatacenterId, true).Load();
}

}  // namespace Ombry::ClientCommunications
