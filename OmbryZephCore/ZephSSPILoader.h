#pragma once

#include "LibraryLogger/ILogger.h"
#include "Platform/ISecurityProvider.h"

#include <memory>

namespace OmbryZephCore {

/// Finds the function table of the platform's security support provider and keeps its library loaded.
/// Belongs to one object; one thread at a time.
class ZephSSPILoader {
public:
    explicit ZephSSPILoader(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSSPILoader();
    ZephSSPILoader(const ZephSSPILoader&) = delete;
    ZephSSPILoader& operator=(const ZephSSPILoader&) = delete;

    /// Loads the TLS provider's own library, or the general one if `bUseProviderLibrary` is false, and takes
    /// its table. Does nothing once that is done. 0, or the platform's error.
    std::uint32_t Initialize(bool bUseProviderLibrary);

    /// Forgets the table and releases the library.
    void Unload();

    /// Null until loaded.
    Ombry::Platform::SecurityFunctions* GetFunctions() const { return m_Functions; }

private:
    std::uint32_t LoadModule(bool bUseProviderLibrary);
    std::uint32_t TakeFunctions();
    void ReleaseModule();

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    Ombry::Platform::SecurityModule m_Module = 0;
    Ombry::Platform::SecurityFunctions* m_Functions = nullptr;
};

}  // namespace OmbryZephCore
