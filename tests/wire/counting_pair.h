// One half of the library beside a raw counterpart, as tests of counters and barriers begin.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/counter_frames.h"
#include "wire/counter_processes.h"
#include "wire/counter_segment.h"

namespace jextest {

/// A Partner that has been started, and a raw agent that has its registration.
struct PartnerBesideRawAgent {
  explicit PartnerBesideRawAgent(const CountingPartnerOptions& options = {},
                                 const Child::Environment& environment = {})
      : partner(startCountingPartner(options, environment)) {
    if (partner.ask("start") != "true") throw std::runtime_error(partner.standardError());
    address = agent.receiveRegistration();
  }

  uint32_t pid() const { return static_cast<uint32_t>(partner.pid()); }

  /// Expects that the Partner has sent nothing that was not received: what it is made to send now
  /// comes next.
  void expectNothingElse() {
    const uint64_t time = std::stoull(partner.ask("barrier"));
    EXPECT_EQ(agent.receive(), barrier(pid(), 0, time));
  }

  RawAgent agent;
  Child partner;
  std::string address;
};

/// An agent and a raw Partner that is registered, with a segment of its own making.
struct AgentBesideRawPartner {
  static constexpr uint32_t kPid = 4242;

  explicit AgentBesideRawPartner(const CountingAgentOptions& options = {},
                                 const Child::Environment& environment = {})
      : agent(startCountingAgent(options, environment)),
        partner(kPid),
        segment(CounterSegment::create()) {
    partner.registerWithAgent();
  }

  /// Starts the counters of a table, with a block made for it.
  void enable(uint32_t table_id, size_t entries, const std::string& program = "limits") {
    segment.makeBlock(std::to_string(table_id), entries);
    partner.send(counterConfig(kPid, table_id, 1, program));
  }
  void enablePairs() { enable(kPairs, kPairCount); }
  void disable(uint32_t table_id, const std::string& program = "limits") {
    partner.send(counterConfig(kPid, table_id, 0, program));
  }
  void sendBarrier(uint32_t table_id, uint64_t timestamp) {
    partner.send(barrier(kPid, table_id, timestamp));
  }

  /// Waits until the agent has handled all that the Partner has sent; its answer has to be the next
  /// that comes.
  void fence() {
    const uint64_t name = next_fence++;
    sendBarrier(0, name);
    EXPECT_EQ(partner.receive(), barrierReply(name)) << agent.standardError();
  }

  /// One counter sync of table `table_id`, from its barrier to the answer. No other barrier waits.
  void sync(uint32_t table_id) {
    const uint64_t name = next_fence++;
    sendBarrier(table_id, name);
    EXPECT_EQ(partner.receive(), barrierReply(name)) << agent.standardError();
  }

  Bytes block(uint32_t table_id) const { return segment.block(std::to_string(table_id)); }

  Child agent;
  RawPartner partner;
  CounterSegment segment;
  uint64_t next_fence = 0xFE9CE00000000000;
};

/// Fields of a block, by their offsets.
inline uint32_t reservedOf(const Bytes& block) { return u32At(block, 0); }
inline uint64_t lastReadTimeOf(const Bytes& block) { return u64At(block, 4); }
inline uint64_t packetsOf(const Bytes& block, size_t i) { return u64At(block, 12 + 16 * i); }
inline uint64_t bytesCountedIn(const Bytes& block, size_t i) { return u64At(block, 20 + 16 * i); }

/// The steady clock in milliseconds.
uint64_t steadyMilliseconds();

}  // namespace jextest
