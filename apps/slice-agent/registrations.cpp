#include "registrations.h"

#include <nanomsg/nn.h>
#include <nanomsg/pair.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "threads.h"

namespace slice_agent {
namespace {

/// Registrations at which the agent warns. From the last on nothing is counted any more: counting
/// takes a socket for a moment.
constexpr int kWarnings[] = {400, 450, 490};

/// About how many sockets of the messaging library are open; -1 if there is none to be had. The
/// library gives the lowest free number, and none but this function closes a socket; a registration
/// at that moment makes the number one too low.
int openSockets() {
  const int next = nn_socket(AF_SP, NN_PAIR);
  if (next >= 0) nn_close(next);
  return next;
}

void warn(int registrations) {
  std::fprintf(
      stderr,
      "slice-agent: warning: %d partners have registered since the start; at about 500 the "
      "sockets for them are used up, and the next partner's barrier stops the agent: start "
      "agent and partners anew before\n",
      registrations);
}

}  // namespace

void watchRegistrations(int own_sockets) {
  startThread("registrations", [own_sockets] {
    for (const int threshold : kWarnings) {
      int registrations = 0;
      while ((registrations = openSockets() - own_sockets) < threshold) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
      }
      warn(registrations);
    }
  });
}

}  // namespace slice_agent
