#include "model/pipeline/packet_run.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "model/base/clock.h"
#include "model/base/wire_value.h"

namespace jxmodel {
namespace {

/// Of the fragments of a datagram, only the first has these headers.
bool isOfSegment(Header header) {
  return header == Header::kL4 || header == Header::kTcp || header == Header::kUdp ||
         header == Header::kIcmp || header == Header::kIcmpv6;
}

}  // namespace

PacketRun::PacketRun(const Pipeline& pipeline, const Pipeline::Packet& packet,
                     std::vector<Digest>* digests, Trace* trace)
    : pipeline_(pipeline),
      program_(*pipeline.compiled_),
      wire_size_(packet.wire_size),
      digests_(digests),
      trace_(trace) {
  outcome_.parse = parse(packet.data, packet.size, packet.wire_size, &view_.headers);
  if (outcome_.parse != ParseStatus::kOk) {
    drop(DropReason::kMalformed);
    return;
  }
  view_.data = packet.data;
  view_.size = packet.size;
  view_.ingress_port = static_cast<uint16_t>(packet.ingress_port);
  metadata_.resize(program_.metadata_bytes);
  outcome_.reason = DropReason::kNoEgress;  // until a port is chosen
  const ReadSection section;
  runSteps(program_);
}

void PacketRun::drop(DropReason reason) {
  outcome_.kind = Outcome::Kind::kDropped;
  outcome_.reason = reason;
  ended_ = true;
}

void PacketRun::runSteps(const CompiledProgram& program) {
  for (uint32_t at = program.first; at != CompiledProgram::kEnd && !ended_;) {
    const CompiledStep& step = program.steps[at];
    bool yes = true;
    switch (step.kind) {
      case CompiledStep::Kind::kApply:
        yes = apply(program.applies[step.index]);
        break;
      case CompiledStep::Kind::kValid:
        yes = view_.headers.has(static_cast<Header>(step.index));
        break;
      case CompiledStep::Kind::kCompare:
        yes = compare(program.compares[step.index]);
        break;
      case CompiledStep::Kind::kPrimitive: {
        const CompiledPrimitive& primitive = program.primitives[step.index];
        if (trace_ != nullptr) {
          Trace::Step& traced = trace_->steps.emplace_back();
          traced.kind = Trace::Step::Kind::kStep;
          traced.what = textOf(program.program, *primitive.description);
        }
        run(primitive, nullptr);
        break;
      }
    }
    if (trace_ != nullptr && step.branch != nullptr) {
      Trace::Step& traced = trace_->steps.emplace_back();
      traced.kind = Trace::Step::Kind::kBranch;
      traced.what = textOf(program.program, *step.branch);
      traced.taken = yes;
    }
    at = yes ? step.yes : step.no;
  }
}

MatchTable::Applied PacketRun::lookUp(const CompiledApply& apply) {
  const MatchTable& table = *apply.state->match;
  Bytes values(table.codec().valueBytes());
  uint8_t* at = values.data();
  for (const KeyField& field : apply.state->table->key) {
    load(*field.field, at);
    at += field.value_bytes;
  }
  return pipeline_.reader_.lookUp(table, values.data());
}

/// Fragments of a datagram take one member: ports, which the first alone has, count for none.
uint32_t PacketRun::hashOf(const CompiledApply& apply) {
  Bytes values(apply.hash_bytes);
  uint8_t* at = values.data();
  for (const uint32_t field : apply.hash_fields) {
    const CompiledField& bound = program_.fields[field];
    if (view_.headers.fragment && bound.id && isOfSegment(fieldHeader(*bound.id))) {
      std::fill_n(at, bound.bytes, uint8_t{0});
    } else {
      load(field, at);
    }
    at += bound.bytes;
  }
  return static_cast<uint32_t>(crc32_z(0, values.data(), values.size()));
}

BoundAction PacketRun::actionOf(const CompiledApply& apply, const MatchTable::Applied& applied,
                                Trace::Step* step) {
  // Most entries have an action of their own: there is nothing to find, unless a trace shows it.
  const bool own = applied.slot != kNoSlot && applied.result.kind == MatchResult::Kind::kAction;
  if (own && step == nullptr) return applied.result.action;
  const TableReader::Found found = pipeline_.reader_.actionOf(
      *apply.state, applied, apply.default_action, [&] { return hashOf(apply); });
  if (step != nullptr) {
    step->group_handle = found.group_handle;
    step->member_handle = found.member_handle;
  }
  if (found.no_member) drop(DropReason::kNoMember);
  return found.action;
}

bool PacketRun::apply(const CompiledApply& apply) {
  const MatchTable::Applied applied = lookUp(apply);
  if (trace_ == nullptr) {
    if (applied.hit) {
      noteHit(*apply.state, applied.slot, wire_size_, [this] { return now(); });
    }
    runAction(actionOf(apply, applied, nullptr));
    return applied.hit;
  }
  Trace::Step step;
  step.what = apply.state->table->name;
  step.taken = applied.hit;
  step.entry_handle = applied.handle;
  const BoundAction bound = actionOf(apply, applied, &step);
  if (bound.action != nullptr) {
    step.action = bound.action->name;
    for (const Param& param : bound.action->params) {
      const uint8_t* const value = bound.params + param.offset;
      step.parameters.push_back({param.name, {value, value + bytesOf(param.width)}});
    }
  }
  trace_->steps.push_back(std::move(step));
  runAction(bound);
  return applied.hit;
}

void PacketRun::runAction(const BoundAction& bound) {
  if (bound.action == nullptr) return;
  const auto index = bound.action - program_.program.actions.data();
  for (const CompiledPrimitive& primitive : program_.actions[static_cast<size_t>(index)]) {
    if (!run(primitive, bound.params)) return;
  }
}

bool PacketRun::run(const CompiledPrimitive& primitive, const uint8_t* params) {
  switch (primitive.op) {
    case PrimitiveOp::kSet: {
      uint8_t value[kMaxFieldBytes];
      read(primitive.source, params, value, program_.fields[primitive.field].bytes);
      store(primitive.field, value);
      return true;
    }
    case PrimitiveOp::kForward:
      outcome_.kind = Outcome::Kind::kForwarded;
      outcome_.reason = DropReason::kNone;
      outcome_.port = number(primitive.source, params);
      view_.egress_port = static_cast<uint16_t>(outcome_.port & 0x1FF);
      return true;
    case PrimitiveOp::kFlood:
      outcome_.kind = Outcome::Kind::kFlooded;
      outcome_.reason = DropReason::kNone;
      return true;
    case PrimitiveOp::kDrop:
      drop(DropReason::kDropAction);
      return false;
    case PrimitiveOp::kDecrement:
      return decrement(primitive.field);
    case PrimitiveOp::kCount:
      countInto(primitive, params);
      return true;
    case PrimitiveOp::kDigest:
      digest(primitive.learn);
      return true;
  }
  return true;
}

/// A packet without the header has nothing that could expire.
bool PacketRun::decrement(uint32_t field) {
  if (!present(field)) return true;
  const uint32_t bytes = program_.fields[field].bytes;
  uint8_t value[kMaxFieldBytes];
  load(field, value);
  const auto isZero = [&value, bytes] {
    return std::all_of(value, value + bytes, [](uint8_t byte) { return byte == 0; });
  };
  if (!isZero()) {
    uint32_t at = bytes;
    while (value[--at]-- == 0) {  // borrows
    }
    store(field, value);
  }
  if (!isZero()) return true;
  drop(DropReason::kExpired);
  return false;
}

void PacketRun::countInto(const CompiledPrimitive& primitive, const uint8_t* params) {
  if (primitive.counters == nullptr || trace_ != nullptr) return;
  if (primitive.counters->count(number(primitive.source, params), wire_size_)) return;
  Pipeline::add(pipeline_.counters_.bad_counter_indices);
}

void PacketRun::digest(uint32_t learn) {
  if (digests_ == nullptr) return;
  Digest& made = digests_->emplace_back();
  made.learn = learn;
  for (const LearnField& field : program_.program.learns[learn].fields) {
    const size_t end = made.values.size();
    made.values.resize(end + program_.fields[field.field].bytes);
    load(field.field, made.values.data() + end);
  }
}

bool PacketRun::compare(const CompiledCompare& compare) const {
  uint8_t left[kMaxFieldBytes], right[kMaxFieldBytes];
  read(compare.left, nullptr, left, kMaxFieldBytes);
  read(compare.right, nullptr, right, kMaxFieldBytes);
  if (compare.mask) {
    uint8_t mask[kMaxFieldBytes] = {};
    std::copy(compare.mask->begin(), compare.mask->end(),
              std::end(mask) - static_cast<std::ptrdiff_t>(compare.mask->size()));
    for (size_t i = 0; i < kMaxFieldBytes; ++i) {
      left[i] = static_cast<uint8_t>(left[i] & mask[i]);
      right[i] = static_cast<uint8_t>(right[i] & mask[i]);
    }
  }
  const int order = std::memcmp(left, right, kMaxFieldBytes);
  switch (compare.op) {
    case CompareOp::kEqual:
      return order == 0;
    case CompareOp::kNotEqual:
      return order != 0;
    case CompareOp::kLess:
      return order < 0;
    case CompareOp::kLessEqual:
      return order <= 0;
    case CompareOp::kGreater:
      return order > 0;
    case CompareOp::kGreaterEqual:
      return order >= 0;
  }
  return false;
}

void PacketRun::load(uint32_t field, uint8_t* value) const {
  const CompiledField& bound = program_.fields[field];
  if (bound.id) return jxmodel::load(*bound.id, view_, value);
  std::memcpy(value, metadata_.data() + bound.offset, bound.bytes);
}

void PacketRun::store(uint32_t field, const uint8_t* value) {
  const CompiledField& bound = program_.fields[field];
  if (bound.id) {
    (void)jxmodel::store(*bound.id, view_, value);  // a packet without the header stays as it is
    return;
  }
  std::memcpy(metadata_.data() + bound.offset, value, bound.bytes);
}

bool PacketRun::present(uint32_t field) const {
  const CompiledField& bound = program_.fields[field];
  return !bound.id || view_.headers.has(fieldHeader(*bound.id)) ||
         fieldHeader(*bound.id) == Header::kMeta;
}

void PacketRun::read(const CompiledOperand& operand, const uint8_t* params, uint8_t* out,
                     uint32_t bytes) const {
  // Descriptions give no source that is wider than what it is for; a constant may be.
  const uint32_t used = std::min(bytes, operand.bytes);
  const uint32_t skipped = operand.bytes - used;
  uint8_t* const at = out + (bytes - used);
  std::fill(out, at, uint8_t{0});
  switch (operand.kind) {
    case CompiledOperand::Kind::kField:
      return load(operand.index, at);
    case CompiledOperand::Kind::kParam:
      std::copy_n(params + operand.index + skipped, used, at);
      return;
    case CompiledOperand::Kind::kConstant:
      std::copy_n(operand.constant + skipped, used, at);
      return;
  }
}

uint32_t PacketRun::number(const CompiledOperand& operand, const uint8_t* params) const {
  uint8_t value[sizeof(uint32_t)];
  read(operand, params, value, sizeof value);
  return static_cast<uint32_t>(readNumber(value, sizeof value));
}

uint64_t PacketRun::now() {
  if (!now_) now_ = Clock::instance().now();
  return *now_;
}

}  // namespace jxmodel
