#include "signals.h"

#include <pthread.h>
#include <signal.h>

#include <initializer_list>
#include <thread>

namespace slice_agent {
namespace {

sigset_t allButFatal() {
  sigset_t signals;
  sigfillset(&signals);
  // Faults of the thread itself, the stop of a broken invariant, a wanted core, the process's
  // limits.
  for (const int number :
       {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGQUIT, SIGXCPU, SIGXFSZ}) {
    sigdelset(&signals, number);
  }
  return signals;
}

bool isIgnored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t endSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (!isIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
  return signals;
}

}  // namespace

void handleSignals(EndAction end) {
  signal(SIGPIPE, SIG_IGN);
  sigset_t blocked = allButFatal();
  // A terminal stops and continues the whole process.
  for (const int number : {SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT}) sigdelset(&blocked, number);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  std::thread([end, signals = endSignals()] {
    int number = 0;
    while (sigwait(&signals, &number) != 0) continue;
    end();
  }).detach();
}

void blockAllButFatalSignals() {
  const sigset_t signals = allButFatal();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace slice_agent
