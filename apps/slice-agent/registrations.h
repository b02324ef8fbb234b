// How many partners have registered with the agent.
#pragma once

namespace slice_agent {

/// Starts a thread that warns on standard error when the agent has little room left for partners: a
/// registration takes one of the messaging library's sockets, of which there are 512, until the
/// agent ends. `own_sockets` are those that the agent has taken itself. Throws StartError.
void watchRegistrations(int own_sockets);

}  // namespace slice_agent
