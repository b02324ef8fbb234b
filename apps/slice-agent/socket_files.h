// The files of local sockets that the agent and its partners meet at.
#pragma once

#include <cstddef>

namespace slice_agent {

/// Where partners find the agent: the address, and the file that stands behind it.
inline constexpr const char* kAgentAddress = "ipc:///tmp/Partner0";
inline constexpr const char* kAgentSocketFile = "/tmp/Partner0";

/// Where partners make the sockets of their reverse paths.
inline constexpr const char* kSocketFolder = "/tmp";

/// Whether connecting to the local stream socket at `path` works right now. A file that a killed
/// process left behind does not count. The connection is closed at once, without a byte sent.
bool socketAccepts(const char* path);

/// Makes sure that the agent can make its socket: no other agent serves, nothing but a socket has
/// its name, and sockets can be made in the folder. Removes the socket of an agent that was killed.
/// Throws StartError, and has changed nothing then.
void makeRoomForAgentSocket();

/// Removes the agent's socket. Does nothing to a file of another kind, or where there is none.
void removeAgentSocket();

/// Removes the sockets in `folder` of partners that have ended without removing them, and returns
/// how many. A file goes if its name is that of a reverse path, it is a socket, no process has the
/// number in its name, and nobody accepts connections at it. (A partner in another namespace of
/// process ids still accepts.) Files that may not be removed stay.
size_t removeStalePartnerSockets(const char* folder = kSocketFolder);

}  // namespace slice_agent
