#pragma once

#include <string>

#include "ClientCommunications/ISyncReader.h"

namespace Ombry::ClientCommunications {

/// A body that is a string in memory.
class SyncStringReader : public ISyncReader {
public:
    explicit SyncStringReader(std::string text) : text(std::move(text)) {}

    void Rewind() override { position = 0; }
    bool IsLengthKnown() override { return true; }
    std::uint64_t GetLength() override { return text.size(); }
    std::size_t Read(void* buffer, std::size_t size) override;

private:
    const std::string text;
    std::size_t position = 0;
};

}  // namespace Ombry::ClientCommunications
