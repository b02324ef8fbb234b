// Threads of the agent, which live as long as the process.
#pragma once

#include <pthread.h>

#include <system_error>
#include <thread>
#include <utility>

#include "start_error.h"

namespace slice_agent {

/// Runs `work` on a thread of its own, which `ps -L` shows under `name` (15 characters at most).
/// Throws StartError.
template <typename Work>
void startThread(const char* name, Work work) {
  try {
    std::thread([name, work = std::move(work)]() mutable {
      pthread_setname_np(pthread_self(), name);
      work();
    }).detach();
  } catch (const std::system_error& error) {
    throw StartError(std::string("cannot start thread ") + name + ": " + error.code().message());
  }
}

}  // namespace slice_agent
