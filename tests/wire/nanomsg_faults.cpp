#include "wire/nanomsg_faults.h"

#include <dlfcn.h>
#include <nanomsg/nn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <sstream>

namespace jextest {
namespace {

struct Fault {
  int nth = 0;  // calls until it fails; 0 = not armed
  int result = 0;
  int error = 0;
};

struct Armed {
  std::mutex mutex;
  std::map<std::string, Fault> faults;
  std::atomic<bool> any{false};

  Armed() {
    const char* const text = std::getenv(kNanomsgFaultVariable);
    if (text == nullptr) return;
    std::istringstream stream(text);
    std::string function;
    Fault fault;
    stream >> function >> fault.nth >> fault.result >> fault.error;
    faults[function] = fault;
    any = true;
  }
};

Armed& armed() {
  static auto* const instance = new Armed;  // sockets may be used while the process ends
  return *instance;
}

bool fails(const char* function, int* result) {
  if (!armed().any) return false;
  const std::lock_guard<std::mutex> lock(armed().mutex);
  const auto found = armed().faults.find(function);
  if (found == armed().faults.end() || found->second.nth == 0) return false;
  if (--found->second.nth > 0) return false;
  *result = found->second.result;
  errno = found->second.error;
  return true;
}

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void failNanomsg(const std::string& function, int nth, int result, int error) {
  const std::lock_guard<std::mutex> lock(armed().mutex);
  armed().faults[function] = {nth, result, error};
  armed().any = true;
}

std::string nanomsgFault(const std::string& function, int nth, int result, int error) {
  return function + " " + std::to_string(nth) + " " + std::to_string(result) + " " +
         std::to_string(error);
}

}  // namespace jextest

extern "C" {

__attribute__((visibility("default"))) int nn_socket(int domain, int protocol) {
  static const auto real = jextest::next<int (*)(int, int)>("nn_socket");
  int result = 0;
  return jextest::fails("nn_socket", &result) ? result : real(domain, protocol);
}

__attribute__((visibility("default"))) int nn_bind(int s, const char* addr) {
  static const auto real = jextest::next<int (*)(int, const char*)>("nn_bind");
  int result = 0;
  return jextest::fails("nn_bind", &result) ? result : real(s, addr);
}

__attribute__((visibility("default"))) int nn_connect(int s, const char* addr) {
  static const auto real = jextest::next<int (*)(int, const char*)>("nn_connect");
  int result = 0;
  return jextest::fails("nn_connect", &result) ? result : real(s, addr);
}

__attribute__((visibility("default"))) int nn_send(int s, const void* buf, size_t len, int flags) {
  static const auto real = jextest::next<int (*)(int, const void*, size_t, int)>("nn_send");
  int result = 0;
  return jextest::fails("nn_send", &result) ? result : real(s, buf, len, flags);
}

__attribute__((visibility("default"))) int nn_poll(nn_pollfd* fds, int nfds, int timeout) {
  static const auto real = jextest::next<int (*)(nn_pollfd*, int, int)>("nn_poll");
  int result = 0;
  return jextest::fails("nn_poll", &result) ? result : real(fds, nfds, timeout);
}

}  // extern "C"
