// Failures of nanomsg calls that no socket can be brought to: this binary puts functions of its own
// before some of nanomsg's, and they fail when told to.
#pragma once

#include <string>

namespace jextest {

/// Arms the `nth` call (1 = the next) of `function`: "nn_socket", "nn_bind", "nn_connect",
/// "nn_send" or "nn_poll" in this process. It returns `result` with `error` as errno.
void failNanomsg(const std::string& function, int nth, int result, int error);

/// The same in a helper process that is started with this environment.
inline const char* const kNanomsgFaultVariable = "JEX_TEST_NANOMSG_FAULT";
std::string nanomsgFault(const std::string& function, int nth, int result, int error);

}  // namespace jextest
