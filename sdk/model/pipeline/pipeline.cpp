#include "model/pipeline/pipeline.h"

#include "model/machine/machine_run.h"
#include "model/pipeline/packet_run.h"
#include "model/runtime/rt_info.h"

namespace jxmodel {

Pipeline::Pipeline(const DeviceCore& device, const RtInfo* info)
    : reader_(device.mutex(), counters_.locked_lookups),
      program_(info == nullptr ? nullptr : &info->program()) {
  if (program_ == nullptr) return;
  if (program_->machine == nullptr) {
    compiled_ = std::make_unique<CompiledProgram>(*program_, info->states());
    return;
  }
  settings_ = std::make_unique<MachineSettings>(*program_->machine);
  machine_ = std::make_unique<CompiledMachine>(*program_, info->states(), reader_, *settings_);
}

Pipeline::~Pipeline() = default;

Outcome Pipeline::run(const Packet& packet, std::vector<Digest>* digests, Trace* trace) const {
  if (machine_ == nullptr) return runProgram(packet, digests, trace);
  return runMachine(PacketBuffer(packet.data, packet.size), packet.wire_size, packet.ingress_port,
                    nullptr, digests, trace);
}

Outcome Pipeline::runProgram(const Packet& packet, std::vector<Digest>* digests,
                             Trace* trace) const {
  Outcome outcome;
  outcome.reason = DropReason::kNoEgress;
  if (compiled_) outcome = PacketRun(*this, packet, digests, trace).outcome();
  if (trace == nullptr) {
    count(packet.wire_size, outcome);
    return outcome;
  }
  trace->program = compiled_ ? compiled_->program.name : std::string{};
  trace->ingress_port = packet.ingress_port;
  trace->outcome = outcome;
  return outcome;
}

/// A packet that a capture has cut is no packet that a parser could say anything about.
Outcome Pipeline::runMachine(PacketBuffer&& packet, uint32_t wire_size, uint32_t ingress_port,
                             Egress* egress, std::vector<Digest>* digests, Trace* trace) const {
  const ScratchLease scratch(*machine_);
  Outcome outcome;
  if (packet.size() < wire_size) {
    outcome.reason = DropReason::kMalformed;
    outcome.parse = ParseStatus::kCutByCapture;
  } else {
    const ReadSection section;
    MachineRun run(*machine_, *scratch, {digests, trace});
    outcome = run.run(ingress_port, std::move(packet));
  }
  if (trace == nullptr) {
    count(wire_size, outcome);
  } else {
    trace->program = program_->name;
    trace->ingress_port = ingress_port;
    trace->outcome = outcome;
    for (const Leaving& one : scratch->leaving) {
      const PacketBuffer& bytes = one.packet;
      trace->leaving.push_back({one.port, {bytes.data(), bytes.data() + bytes.size()}});
    }
  }
  if (egress == nullptr) return outcome;
  for (Leaving& one : scratch->leaving) egress->send(one.port, std::move(one.packet));
  return outcome;
}

Outcome Pipeline::forward(uint32_t ingress_port, PacketBuffer&& packet, Egress& egress,
                          std::vector<Digest>* digests) const {
  const auto wire_size = static_cast<uint32_t>(packet.wireLength());
  if (machine_ != nullptr) {
    return runMachine(std::move(packet), wire_size, ingress_port, &egress, digests, nullptr);
  }
  const Packet view{packet.data(), static_cast<uint32_t>(packet.size()), wire_size, ingress_port};
  const Outcome outcome = runProgram(view, digests, nullptr);
  if (outcome.kind == Outcome::Kind::kForwarded) {
    egress.send(outcome.port, std::move(packet));
  } else if (outcome.kind == Outcome::Kind::kFlooded) {
    egress.flood(ingress_port, std::move(packet));
  }
  return outcome;
}

void Pipeline::count(uint64_t bytes, const Outcome& outcome) const {
  add(counters_.received_bytes, bytes);
  switch (outcome.kind) {
    case Outcome::Kind::kForwarded:
      return add(counters_.forwarded);
    case Outcome::Kind::kFlooded:
      return add(counters_.flooded);
    case Outcome::Kind::kDropped:
      break;
  }
  add(counters_.dropped[static_cast<size_t>(outcome.reason)]);
  if (outcome.reason == DropReason::kMalformed) {
    add(counters_.malformed[static_cast<size_t>(outcome.parse)]);
  }
}

PipelineCounts Pipeline::counts() const {
  PipelineCounts counts;
  const auto read = [](const Counter& counter) { return counter.load(std::memory_order_relaxed); };
  counts.received_bytes = read(counters_.received_bytes);
  counts.forwarded = read(counters_.forwarded);
  counts.flooded = read(counters_.flooded);
  counts.received = counts.forwarded + counts.flooded;
  for (size_t i = 0; i < kDropReasonCount; ++i) {
    counts.dropped[i] = read(counters_.dropped[i]);
    counts.received += counts.dropped[i];
  }
  for (size_t i = 0; i < kParseStatusCount; ++i) counts.malformed[i] = read(counters_.malformed[i]);
  counts.bad_counter_indices = read(counters_.bad_counter_indices);
  counts.locked_lookups = read(counters_.locked_lookups);
  if (machine_ != nullptr) addHappened(&counts);
  return counts;
}

void Pipeline::addHappened(PipelineCounts* counts) const {
  const auto addOne = [counts](const Counter& counter, const std::string& what) {
    const uint64_t times = counter.load(std::memory_order_relaxed);
    if (times != 0) counts->happened.push_back({what, times});
  };
  for (size_t i = 0; i < kMachineEventCount; ++i) {
    addOne(machine_->events[i], nameOf(static_cast<MachineEvent>(i)));
  }
  const auto& names = machine_->machine.errors.names;
  for (size_t i = 0; i < names.size(); ++i) {
    addOne(machine_->parser_errors[i], "parser error " + names[i].first);
  }
  addOne(machine_->parser_errors.back(), "parser error of no name");
}

}  // namespace jxmodel
