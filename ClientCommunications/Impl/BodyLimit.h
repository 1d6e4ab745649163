#pragma once

#include "ClientCommunications/IServiceGateway.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

#include <cstdint>
#include <exception>

namespace Ombry::ClientCommunications {

/// A body is longer than what is held in memory. Ends an exchange; the gateway makes the failure of it that
/// its callers see.
class BodyTooLong : public std::exception {};

/// Throws if so many more bytes than those that are held already would be too many.
inline void RequireRoomForBody(std::uint64_t held, std::uint64_t more) {
    if (held + more > MaxBodyInMemory) throw BodyTooLong();
}

/// Stands before a sink that keeps a body in memory: refuses one that is too long as soon as its length, or
/// that of a chunk, is announced, and otherwise before the first byte too many is stored. Lives on the stack
/// of one call; does not own the sink.
class BodyLimit : public OmbryZephCore::ZephSyncDataWriterIf {
public:
    explicit BodyLimit(OmbryZephCore::ZephSyncDataWriterIf& sink) : sink(sink) {}

    void Begin() override {
        held = 0;
        sink.Begin();
    }
    void Expect(std::uint32_t nBytes) override { RequireRoomForBody(held, nBytes); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        RequireRoomForBody(held, nBytes);
        held += nBytes;
        sink.Write(pData, nBytes);
    }
    void End() override { sink.End(); }

private:
    OmbryZephCore::ZephSyncDataWriterIf& sink;
    std::uint64_t held = 0;
};

}  // namespace Ombry::ClientCommunications
