// Tells whether somebody serves a local socket.
#pragma once

namespace slice_agent {

/// Whether connecting to the local stream socket at `path` works right now. A file that a killed
/// process left behind does not count. The connection is closed at once, without a byte sent.
bool socketAccepts(const char* path);

}  // namespace slice_agent
