#pragma once

#include "ClientCommunications/ISyncReader.h"
#include "Platform/SecureWipe.h"

#include <string>

namespace Ombry::ClientCommunications {

/// A body that is a string in memory. It may be a secret: it is wiped with the reader.
class SyncStringReader : public ISyncReader {
public:
    explicit SyncStringReader(std::string text) : text(std::move(text)) {}
    ~SyncStringReader() override { Platform::SecureWipe(text); }
    SyncStringReader(const SyncStringReader&) = delete;
    SyncStringReader& operator=(const SyncStringReader&) = delete;

    void Rewind() override { position = 0; }
    bool IsLengthKnown() override { return true; }
    std::uint64_t GetLength() override { return text.size(); }
    std::size_t Read(void* buffer, std::size_t size) override;

private:
    std::string text;
    std::size_t position = 0;
};

}  // namespace Ombry::ClientCommunications
