#pragma once

#include <httplib.h>

#include <set>
#include <string>
#include <utility>

namespace Ombry::Sandbox {

/// Address and port of a client's end; of many machines several may have one port.
using Peer = std::pair<std::string, int>;

/// Address and port of a connection's other end, or of its own; as they were if it has none any more.
void FindPeer(int socket, std::string& address, int& port);
void FindOwnEnd(int socket, std::string& address, int& port);

/// The socket that a request came over; -1 if its connection is gone. Valid while the request is handled.
int FindConnection(const httplib::Request& request);

/// Whether the other end was closed, or the connection broken. True for -1.
bool HasHungUp(int socket);

/// Breaks a connection off with a reset. Its owner still closes the socket, and can do nothing else with it.
void ResetConnection(int socket);

/// Ends the reading from every connection to a port of this process, but for those of these peers. The
/// library takes it for the end of the connection.
void EndReading(int port, const std::set<Peer>& kept);

}  // namespace Ombry::Sandbox
