#include "OmbryZephCore/ZephSSPILoader.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <utility>

namespace OmbryZephCore {

using Ombry::LibraryLogger::LogCall;
using Ombry::Platform::SecurityProvider;

namespace {

// A failure may carry the number 0, which as a result would say success.
std::uint32_t FailureCode(int nError) {
    return nError != 0 ? static_cast<std::uint32_t>(nError) : std::uint32_t{eRC_Fail};
}

}  // namespace

ZephSSPILoader::ZephSSPILoader(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(std::move(logger)) {}

ZephSSPILoader::~ZephSSPILoader() {
    Unload();
}

std::uint32_t ZephSSPILoader::Initialize(bool bUseProviderLibrary) {
    if (m_Functions) return eRC_Success;
    if (const std::uint32_t nResult = LoadModule(bUseProviderLibrary)) return nResult;
    const std::uint32_t nResult = TakeFunctions();
    if (nResult != eRC_Success) ReleaseModule();
    return nResult;
}

void ZephSSPILoader::Unload() {
    if (!m_Functions) return;
    m_Functions = nullptr;
    ReleaseModule();
}

std::uint32_t ZephSSPILoader::LoadModule(bool bUseProviderLibrary) {
    constexpr const char* function = "OmbryZephCore::ZephSSPILoader::Initialize";
    if (bUseProviderLibrary) {
        const auto module = SecurityProvider().LoadModule("SCHANNEL.DLL");
        if (module) {
            m_Module = *module;
            return eRC_Success;
        }
        LogCall(m_Logger, function, 4, "Cannot load SCHANNEL.DLL (error ", module.Error(), ").");
        return FailureCode(module.Error());
    }
    const auto first = SecurityProvider().LoadModule("SECUR32.DLL");
    if (first) {
        m_Module = *first;
        return eRC_Success;
    }
    const auto second = SecurityProvider().LoadModule("SECURITY.DLL");
    if (second) {
        m_Module = *second;
        return eRC_Success;
    }
    LogCall(m_Logger, function, 4, "Cannot load SECUR32.DLL (error ", first.Error(),
            ") or SECURITY.DLL (error ", second.Error(), ").");
    return FailureCode(second.Error());
}

std::uint32_t ZephSSPILoader::TakeFunctions() {
    constexpr const char* function = "OmbryZephCore::ZephSSPILoader::Initialize";
    const auto entryPoint = SecurityProvider().FindEntryPoint(m_Module, "InitSecurityInterfaceA");
    if (!entryPoint) {
        LogCall(m_Logger, function, 4,
                "Failed to get the address of the initialization function for the security DLL (error ",
                entryPoint.Error(), ").");
        return FailureCode(entryPoint.Error());
    }
    const auto functions = SecurityProvider().CallEntryPoint(*entryPoint);
    if (!functions || !*functions) {
        LogCall(m_Logger, function, 4, "Security DLL initialization function failed  (error ",
                functions.Error(), ").");
        return FailureCode(functions.Error());
    }
    m_Functions = *functions;
    return eRC_Success;
}

void ZephSSPILoader::ReleaseModule() {
    SecurityProvider().ReleaseModule(m_Module);
    m_Module = 0;
}

}  // namespace OmbryZephCore
