#pragma once

#include <cstdint>

namespace OmbryZephCore {

/// Results of every operation of the network core that can fail; nothing here throws for a network failure.
/// Client code compares the numbers, so the values are part of the interface. A few operations hand out a
/// number of the platform in the same type.
enum ResultCode : std::uint32_t {
    eRC_Success = 0,
    eRC_Fail = 1,                      ///< no address of a host could be connected; the handle table is full
    eRC_OutOfMemory = 3,               ///< an allocation failed
    eRC_InvalidArgument = 5,           ///< null or empty argument, or an object of somebody else
    eRC_NotInitialized = 7,            ///< no layer below, or no handler
    eRC_ConversionFailed = 10,         ///< given by nothing here; the number stays taken
    eRC_IO_ConnectionFailed = 11,      ///< could not connect, or broke during a request: worth one more try
    eRC_TaskRefused = 12,              ///< a task gate refused
    eRC_TimedOut = 13,                 ///< silence for too long, or the token fired
    eRC_ResolveFailed = 14,            ///< the resolver failed, or has no address for the host
    eRC_HTTP_BadRequestHeader = 100,   ///< a malformed head of a request; a client reads none
    eRC_HTTP_BadResponseHeader = 101,  ///< a malformed head of an answer, as with a length that is no number
    eRC_HTTP_StatusFailure = 108,      ///< the exchange ended with a status outside 200 to 299
    eRC_IO_HandleAlreadyRegistered = 200,  ///< the reactor knows the socket already
    eRC_IO_HandleNotRegistered = 201,      ///< the reactor does not know the socket
    eRC_IO_ReadAlreadyInProgress = 202,    ///< a socket has one read at a time
    eRC_IO_WriteAlreadyInProgress = 203,   ///< a socket, or a request, has one write at a time
};

}  // namespace OmbryZephCore
