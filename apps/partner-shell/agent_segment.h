// Looks from outside at what the slice agent has mapped.
#pragma once

namespace jexapps {

/// Whether the process that serves partners has a counter segment mapped: the first one that a
/// partner made in that process's life, which it keeps. False too if it cannot be told (no agent,
/// or another user's).
bool agentHasCounterSegment();

}  // namespace jexapps
