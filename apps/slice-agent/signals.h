// The signals of the agent: which end it, and which threads they reach.
#pragma once

namespace slice_agent {

/// What a signal that ends the agent calls: it has to end the process.
using EndAction = void (*)();

/// Starts a thread that calls `end` when SIGINT, SIGTERM or SIGHUP comes (SIGHUP not where it was
/// ignored at the start, as under nohup). Blocks them in the calling thread, and so in all that it
/// starts later, with every other signal that is neither fatal nor about job control: these do
/// nothing any more. SIGPIPE is ignored.
///
/// `main` calls it once, before it starts another thread. Throws std::system_error.
void handleSignals(EndAction end);

/// Blocks all signals but the fatal ones in the calling thread, so that no signal handler of the
/// process interrupts what it waits in.
void blockAllButFatalSignals();

}  // namespace slice_agent
