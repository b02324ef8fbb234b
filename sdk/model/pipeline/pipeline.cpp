#include "model/pipeline/pipeline.h"

#include "model/base/clock.h"
#include "model/pipeline/packet_run.h"
#include "model/runtime/rt_info.h"

namespace jxmodel {

Pipeline::Pipeline(const DeviceCore& device, const RtInfo* info)
    : device_(device),
      compiled_(info == nullptr
                    ? nullptr
                    : std::make_unique<CompiledProgram>(info->program(), info->states())) {}

Pipeline::~Pipeline() = default;

Outcome Pipeline::run(const Packet& packet, std::vector<Digest>* digests, Trace* trace) const {
  Outcome outcome;
  outcome.reason = DropReason::kNoEgress;
  if (compiled_) outcome = PacketRun(*this, packet, digests, trace).outcome();
  if (trace == nullptr) {
    count(packet, outcome);
    return outcome;
  }
  trace->program = compiled_ ? compiled_->program.name : std::string{};
  trace->ingress_port = packet.ingress_port;
  trace->outcome = outcome;
  return outcome;
}

Outcome Pipeline::forward(uint32_t ingress_port, PacketBuffer&& packet, Egress& egress,
                          std::vector<Digest>* digests) const {
  if (packet.timeNs() > 0) Clock::instance().observe(static_cast<uint64_t>(packet.timeNs()));
  const Packet view{packet.data(), static_cast<uint32_t>(packet.size()),
                    static_cast<uint32_t>(packet.wireLength()), ingress_port};
  const Outcome outcome = run(view, digests);
  if (outcome.kind == Outcome::Kind::kForwarded) {
    egress.send(outcome.port, std::move(packet));
  } else if (outcome.kind == Outcome::Kind::kFlooded) {
    egress.flood(ingress_port, std::move(packet));
  }
  return outcome;
}

void Pipeline::count(const Packet& packet, const Outcome& outcome) const {
  add(counters_.received_bytes, packet.wire_size);
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
  return counts;
}

}  // namespace jxmodel
