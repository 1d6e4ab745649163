#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Blocking TCP sockets on loopback in the system's own calls, for the ends that tests hold themselves:
/// nothing under test serves both sides. Each system has a source of its own for them. Sends raise no signal.
namespace Ombry::Tests::BlockingSockets {

using Socket = std::intptr_t;
inline constexpr Socket None = -1;

/// Listens on a port that the system picks; `None` if the machine has no such loopback address.
Socket Listen(bool six = false);
/// Bound to a port that the system picks for nobody else, and not listening; who asks to share it may listen.
Socket Hold();
/// Connected to a port of loopback; `None` if nobody listens there.
Socket Connect(std::uint16_t port, bool six = false);
/// 0 for a socket that is none.
std::uint16_t PortOf(Socket socket);
/// Numeric address of the other side.
std::string RemoteAddress(Socket socket);

/// Waits for the next connection. `None`, or any connection, once `EndAccepting` was called.
Socket Accept(Socket listener);
/// Lets an `Accept` of another thread return.
void EndAccepting(Socket listener);

/// Whether all bytes were taken.
bool Send(Socket socket, const char* bytes, std::size_t size);
/// Sends one byte out of band.
bool SendUrgent(Socket socket);
/// Waits for bytes, and gives what there is; 0 at the end of the stream, after a failure and once `Shutdown`
/// was called.
std::size_t Receive(Socket socket, char* bytes, std::size_t room);
/// Waits for bytes and leaves them where they are; false at the end of the stream.
bool AwaitReadable(Socket socket);

/// Without it, small pieces would wait for each other.
void SendWithoutDelay(Socket socket);
/// Ends both directions, for other threads that wait on the socket too.
void Shutdown(Socket socket);
/// From now on `Close` ends the connection with a reset.
void ResetOnClose(Socket socket);
void Close(Socket socket);

}  // namespace Ombry::Tests::BlockingSockets
