// The two halves of the library as processes that count and send barriers, driven line by line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/child.h"

namespace jextest {

/// A Partner. It starts idle; its commands:
///   start                     PartnerLibStartup     -> "true"
///   shutdown                  PartnerLibShutdown    -> "done"
///   init PROGRAM TABLE        PartnerCounterInit    -> "true handle"; "true untouched" if it left
///                             *handle as it was; "thrown WHAT"
///   init-null program|table   the same with a null name
///   init-padded PROGRAM TABLE the same with bytes 0xC7 behind the program's name
///   init-uncaught PROGRAM TABLE  the same, and nobody catches what it throws
///   read TABLE FIRST COUNT    PartnerCounterRead    -> "true TIME PACKETS:BYTES..."
///   read-all TABLE COUNT      the same from 0 on    -> "sums PACKETS BYTES"
///   read-none                 the same with a handle that has no values             -> "false"
///   free TABLE                PartnerCounterFree    -> "done"
///   free-unknown ID           the same with a handle that is in no map
///   fault ENTRY STATUS        the next call of an SDK entry fails                   -> "done"
///   barrier, sync TABLE, double TABLE, double-null  PartnerBarrierSend...           -> "TIME"
///   barriers N                N plain barriers      -> "FIRST LAST"
///   last, requested, longest, now                   -> "NUMBER"
///   bins                      the live histogram    -> "NUMBER..."
/// End of input ends it with status 0, without a shut-down.
struct CountingPartnerOptions {
  int device = 1;
  std::string program = "limits";  ///< or a path of a description
};
Child startCountingPartner(const CountingPartnerOptions& options = {},
                           const Child::Environment& environment = {});

/// An agent with one physical device, serving on a loop with a receive wait of 20 ms. Commands:
///   packets PORT COUNT BYTES  lets COUNT frames of BYTES come in at a port          -> "status N"
///   update, update-model      PeriodicHybridCounterUpdate, ...Model                 -> "true"
///   hold, release             completions of counter syncs wait, or go on           -> "done"
///   idle                      waits until no completion is left                     -> "done"
///   waiting                   how many are left                                     -> "NUMBER"
///   record ID                 -> "PENDING NEXT"; "none" for a table without counters
///   image ID [no-counters]    handles a read request with the record of a table     -> "done"
///   become-partner            PartnerLibStartup with a virtual device 1             -> "true"
/// End of input ends it with status 0.
struct CountingAgentOptions {
  int device = 0;
  std::string program = "limits";
};
Child startCountingAgent(const CountingAgentOptions& options = {},
                         const Child::Environment& environment = {});

/// Numbers of a line.
std::vector<uint64_t> numbersIn(const std::string& line);

/// Writes the description of a program "counters" (id `program_id`) that has one counter table
/// "t1", "t2", ... for each of `sizes`, and returns its file. A packet counts in every table, at
/// the number of the port where it comes in.
std::string counterProgram(uint32_t program_id, const std::vector<uint32_t>& sizes);
inline uint32_t counterTableId(uint32_t program_id, uint32_t position) {
  return program_id << 16 | position;
}

}  // namespace jextest
