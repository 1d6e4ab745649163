#pragma once

#include <cstdint>

namespace OmbryZephCore {

/// Source of a request body, called on the thread of the request. What it throws ends the request, which is
/// not repeated, and comes out of `DoRequest`.
class ZephSyncDataReaderIf {
public:
    virtual ~ZephSyncDataReaderIf() = default;
    /// Whether there is a body at all.
    virtual bool HasData() = 0;
    /// Bytes of the body from its beginning; 0 for unknown, and for 4 GiB and more, which do not fit in here:
    /// the body goes out in chunks. Called at the start of each attempt, which begins the body anew.
    virtual std::uint32_t GetLength() = 0;
    /// `*pnBytes` is the room on entry and the count on return. False means that there is no more, whatever
    /// the count, and so does true with a count of 0.
    virtual bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) = 0;
};

/// Sink of a response body, called on the thread of the request; the data is valid during the call. What it
/// throws ends the request, which is not repeated, and comes out of `DoRequest`.
class ZephSyncDataWriterIf {
public:
    virtual ~ZephSyncDataWriterIf() = default;
    /// The head has come; a body begins, anew if an attempt before it broke off.
    virtual void Begin() = 0;
    /// The next bytes.
    virtual void Write(const std::uint8_t* pData, std::uint32_t nBytes) = 0;
    /// The body is whole.
    virtual void End() = 0;
    /// So many more bytes are announced: behind `Begin` the whole body, 0 for unknown, and then each chunk.
    /// Comes before room is made for them; a sink that does not want them throws. A body that has come with
    /// its head is not announced: there is no room to be made.
    virtual void Expect(std::uint32_t /*nBytes*/) {}
};

}  // namespace OmbryZephCore
