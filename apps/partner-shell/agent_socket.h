// Where partners find the slice agent, seen from outside of the library.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace jexapps {

/// The process that serves partners, 0 if it cannot be told.
pid_t agentProcess();

/// Why no partner could ever start here, however long it waits: what is wrong with /tmp, or with
/// what stands in the place of the agent's socket. None if there is nothing.
std::optional<std::string> whyNoPartnerCanStart();

/// What a partner that gets no answer waits for, as it is now: a sentence about the agent's socket.
std::string whyNoAgentAnswers();

}  // namespace jexapps
