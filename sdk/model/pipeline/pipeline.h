// The programs of a physical device as packets meet them.
//
// A packet runs through the first of the device's programs that has a control flow or a machine.
// (Programs of one device share no tables, so there is no order in which a packet could sensibly
// pass several.)
//
// In a control flow, a packet that reaches the end of the control flow leaves through the port that
// the last forward or flood chose; without one it is dropped. What it looks like then is what goes
// out, so steps behind the forward still count. A drop ends the packet at once. A machine may make
// any number of packets of one, of other sizes.
//
// Thread safety: any number of threads may run packets while others write to the tables. See
// docs/design/packets-and-updates.md.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "model/notify/device_core.h"
#include "model/pipeline/compiled.h"
#include "model/port/packet_buffer.h"
#include "model/tables/table_reader.h"
#include "model/trace/outcome.h"
#include "model/trace/trace.h"

namespace jxmodel {

class CompiledMachine;
class MachineSettings;
class RtInfo;

/// Where packets go.
class Egress {
 public:
  virtual ~Egress() = default;
  virtual void send(uint32_t port, PacketBuffer&& packet) = 0;
  /// Through every port but `ingress_port`.
  virtual void flood(uint32_t ingress_port, PacketBuffer&& packet) = 0;
};

/// A snapshot of what became of packets: received = forwarded + flooded + dropped.
struct PipelineCounts {
  uint64_t received = 0;
  uint64_t received_bytes = 0;  // lengths on the wire
  uint64_t forwarded = 0;
  uint64_t flooded = 0;
  std::array<uint64_t, kDropReasonCount> dropped{};     // by DropReason; kMalformed: all of below
  std::array<uint64_t, kParseStatusCount> malformed{};  // by ParseStatus
  uint64_t bad_counter_indices = 0;  // counts beyond the end of a counter table: not counted there
  uint64_t locked_lookups = 0;       // look-ups that waited for an update
  // Of a machine: what happened, for people, and how often; what never happened is left out.
  struct Happened {
    std::string what;  // "division by zero", "parser error PacketTooShort"
    uint64_t times = 0;
  };
  std::vector<Happened> happened;
};

class Pipeline {
 public:
  /// Of a physical device that outlives the pipeline; the device has checked the program. `info` is
  /// null where packets meet no program: all are dropped.
  Pipeline(const DeviceCore& device, const RtInfo* info);
  ~Pipeline();

  /// The program that packets run through; null if the device has none with a way for packets: all
  /// are dropped.
  const Program* program() const { return program_; }
  /// What is set for the program's machine; null where it has none.
  MachineSettings* settings() const { return settings_.get(); }

  struct Packet {
    uint8_t* data = nullptr;  // rewritten in place, but by machines; the length stays
    uint32_t size = 0;
    uint32_t wire_size = 0;  // more than `size` if a capture cut the packet
    uint32_t ingress_port = 0;
  };
  /// Runs one packet. Digests are appended where there is a place for them. With a trace, which is
  /// filled in, somebody only asks what would become of such a packet: nothing counts it, and no
  /// entry is hit by it; what it writes to registers, it alone reads. What leaves a machine can be
  /// seen in the trace only.
  Outcome run(const Packet& packet, std::vector<Digest>* digests, Trace* trace = nullptr) const;

  /// Runs one packet and sends on what becomes of it. The caller has shown its time to the clock.
  Outcome forward(uint32_t ingress_port, PacketBuffer&& packet, Egress& egress,
                  std::vector<Digest>* digests) const;

  PipelineCounts counts() const;

 private:
  friend class PacketRun;
  using Counter = std::atomic<uint64_t>;
  struct Counters {
    Counter received_bytes{0}, forwarded{0}, flooded{0};
    std::array<Counter, kDropReasonCount> dropped{};
    std::array<Counter, kParseStatusCount> malformed{};
    Counter bad_counter_indices{0}, locked_lookups{0};
  };
  static void add(Counter& counter, uint64_t value = 1) {
    counter.fetch_add(value, std::memory_order_relaxed);
  }
  Outcome runMachine(PacketBuffer&& packet, uint32_t wire_size, uint32_t ingress_port,
                     Egress* egress, std::vector<Digest>* digests, Trace* trace) const;
  Outcome runProgram(const Packet& packet, std::vector<Digest>* digests, Trace* trace) const;
  void count(uint64_t bytes, const Outcome& outcome) const;
  void addHappened(PipelineCounts* counts) const;

  mutable Counters counters_;
  const TableReader reader_;
  const Program* const program_;
  std::unique_ptr<const CompiledProgram> compiled_;  // null where the program has a machine
  std::unique_ptr<MachineSettings> settings_;
  std::unique_ptr<const CompiledMachine> machine_;
};

}  // namespace jxmodel
