#pragma once

#include "ClientCommunications/ISyncWriter.h"

#include <string>

namespace Ombry::ClientCommunications {

/// A sink into a string of the caller, which must outlive it.
class SyncStringWriter : public ISyncWriter {
public:
    explicit SyncStringWriter(std::string& text) : text(text) {}

    void Reset() override { text.clear(); }
    void Write(const void* data, std::size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
    void Finish() override {}

private:
    std::string& text;
};

}  // namespace Ombry::ClientCommunications
