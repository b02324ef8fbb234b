// Threads of the agent, which live as long as the process.
#pragma once

#include <pthread.h>

#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "start_error.h"

namespace slice_agent {

/// Runs `work`, which may take as long as the process lives, on a thread of its own. `ps -L` shows
/// it under `name` (15 characters at most) when this has returned. Throws StartError.
template <typename Work>
void startThread(const char* name, Work work) {
  try {
    std::thread thread(std::move(work));
    pthread_setname_np(thread.native_handle(), name);
    thread.detach();
  } catch (const std::system_error& error) {
    throw StartError(std::string("cannot start thread ") + name + ": " + error.code().message());
  }
}

}  // namespace slice_agent
