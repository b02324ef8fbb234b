// What follows the two pipelines: clones, digests, resubmitting, multicast, egress, recirculation.
#include "model/machine/machine_run.h"

namespace jxmodel {

/// In this order: clone, digest, then the packet itself goes one way only.
void MachineRun::endIngress() {
  facts_.max_bytes = requests_.max_bytes;
  if (requests_.clone) cloneIngress(*requests_.clone);
  if (requests_.digest) sampleDigest(*requests_.digest);
  if (requests_.resubmit) return resubmit(*requests_.resubmit);
  const uint64_t group = get(machine_.standard.mcast_grp);
  if (group != 0) return replicate(static_cast<uint32_t>(group));
  const uint64_t port = get(machine_.standard.egress_spec);
  if (port == kDropPort) return drop(DropReason::kDropAction);
  if (scratch_.waiting.empty()) return egress(static_cast<uint32_t>(port));
  // Behind the clones, which were there first.
  if (!mayWait(0)) return;
  WaitingPass& pass = scratch_.waiting.emplace_back();
  pass.entry = WaitingPass::Entry::kEgress;
  pass.facts = facts_;
  pass.facts.egress_port = static_cast<uint32_t>(port);
  pass.state = std::make_shared<PacketState>(state_);
  pass.frame = std::make_shared<PacketBuffer>(std::move(frame_));
}

/// Calls for the targets of a session: its port, then the copies of its group.
template <typename Use>
void MachineRun::forCopies(uint64_t session, Use use) {
  const Replication::Session* const found = settings_.replication.session(session);
  if (found == nullptr) {
    if (trace_ != nullptr) traceEvent("clone session " + std::to_string(session) + " is unknown");
    return tally_.add(MachineEvent::kUnknownSession);
  }
  if (found->port) use(Replication::Copy{0, *found->port});
  if (!found->group) return;
  const Replication::Copies* const copies = settings_.replication.group(*found->group);
  if (copies == nullptr || copies->empty()) return tally_.add(MachineEvent::kUnknownGroup);
  for (const Replication::Copy& copy : *copies) use(copy);
}

std::shared_ptr<const PacketBuffer> MachineRun::sharedFrame() {
  return std::make_shared<PacketBuffer>(frame_.copy());
}

/// The packet as it came in, to be parsed again and to begin with egress.
void MachineRun::cloneIngress(const PacketRequests::Clone& clone) {
  std::shared_ptr<const PacketBuffer> frame;
  forCopies(clone.session, [&](const Replication::Copy& copy) {
    if (!mayWait(0)) return;
    if (frame == nullptr) frame = sharedFrame();
    WaitingPass& pass = scratch_.waiting.emplace_back();
    pass.entry = WaitingPass::Entry::kParserThenEgress;
    pass.facts = facts_;
    pass.facts.type = InstanceType::kIngressClone;
    pass.facts.max_bytes = UINT32_MAX;
    pass.facts.egress_port = copy.port;
    pass.facts.egress_rid = copy.rid;
    pass.frame = frame;
    keep(clone.field_list, &pass);
    tally_.add(MachineEvent::kCloned);
  });
}

/// The packet as it is at the end of egress, to begin with egress.
void MachineRun::cloneEgress(const PacketRequests::Clone& clone) {
  std::shared_ptr<const PacketBuffer> frame;
  std::shared_ptr<const PacketState> state;
  forCopies(clone.session, [&](const Replication::Copy& copy) {
    if (!mayWait(facts_.generation + 1)) return;
    WaitingPass& pass = scratch_.waiting.emplace_back();
    pass.entry = WaitingPass::Entry::kEgress;
    pass.facts = facts_;
    pass.facts.type = InstanceType::kEgressClone;
    pass.facts.max_bytes = UINT32_MAX;
    pass.facts.generation = facts_.generation + 1;
    pass.facts.egress_port = copy.port;
    pass.facts.egress_rid = copy.rid;
    keep(clone.field_list, &pass);
    if (frame == nullptr) {
      frame = sharedFrame();
      const PacketState current = state_;
      state_.clearMetadata(layout_);
      restore(pass);
      put(machine_.standard.ingress_port, facts_.ingress_port);
      state = std::make_shared<PacketState>(state_);
      state_ = current;
    }
    pass.frame = frame;
    pass.state = state;
    tally_.add(MachineEvent::kCloned);
  });
}

void MachineRun::sampleDigest(uint32_t learn) {
  if (trace_ != nullptr) return traceEvent("digest " + machine_.program.learns[learn].name);
  if (digests_ == nullptr) return;
  Digest& made = digests_->emplace_back();
  made.learn = learn;
  const std::vector<LearnField>& fields = machine_.program.learns[learn].fields;
  const std::vector<uint32_t>& sources = machine_.machine.learns[learn].fields;
  for (size_t i = 0; i < fields.size(); ++i) {
    const FieldSlot& slot = layout_.fields[sources[i]];
    const uint32_t bytes = bytesOf(machine_.program.fields[fields[i].field].width);
    const size_t end = made.values.size();
    made.values.resize(end + bytes);
    limbsToBytes(state_.limbs.data() + slot.limb, slot.limbs, made.values.data() + end, bytes);
  }
}

void MachineRun::resubmit(uint32_t field_list) {
  if (!mayWait(facts_.generation + 1)) return;
  WaitingPass& pass = scratch_.waiting.emplace_back();
  keep(field_list, &pass);
  pass.facts.type = InstanceType::kResubmitted;
  pass.facts.ingress_port = facts_.ingress_port;
  pass.facts.received = facts_.received;
  pass.facts.generation = facts_.generation + 1;
  pass.frame = std::make_shared<PacketBuffer>(std::move(frame_));
  tally_.add(MachineEvent::kResubmitted);
}

/// The packet itself is gone; its copies have all that it had.
void MachineRun::replicate(uint32_t group) {
  const Replication::Copies* const copies = settings_.replication.group(group);
  if (copies == nullptr || copies->empty()) {
    if (trace_ != nullptr) {
      traceEvent("multicast group " + std::to_string(group) + " has no port");
    }
    tally_.add(MachineEvent::kUnknownGroup);
    return drop(DropReason::kNoCopies);
  }
  const auto state = std::make_shared<const PacketState>(state_);
  const auto frame = std::make_shared<const PacketBuffer>(std::move(frame_));
  for (const Replication::Copy& copy : *copies) {
    if (!mayWait(0)) return;
    WaitingPass& pass = scratch_.waiting.emplace_back();
    pass.entry = WaitingPass::Entry::kEgress;
    pass.facts = facts_;
    pass.facts.type = InstanceType::kReplica;
    pass.facts.egress_port = copy.port;
    pass.facts.egress_rid = copy.rid;
    pass.state = state;
    pass.frame = frame;
    tally_.add(MachineEvent::kReplicated);
  }
}

void MachineRun::egress(uint32_t port) {
  const StandardSlots& standard = machine_.standard;
  put(standard.egress_port, port);
  put(standard.egress_spec, 0);  // a drop that was taken back by multicast does not drop now
  put(standard.packet_length, facts_.received);  // whatever headers were added or removed
  put(standard.egress_rid, facts_.egress_rid);
  put(standard.instance_type, static_cast<uint64_t>(facts_.type));
  if (machine_.needs_time) put(standard.egress_timestamp, timestamp());
  requests_ = PacketRequests{};
  if (trace_ != nullptr) traceEvent("egress to port " + std::to_string(port));
  runNodes(machine_.machine.egress.value_or(kNoIndex));
  if (stopped_) return drop(DropReason::kEndless);

  if (requests_.clone) cloneEgress(*requests_.clone);
  if (get(standard.egress_spec) == kDropPort) return drop(DropReason::kDropAction);
  updateChecksums();
  deparse(std::min(facts_.max_bytes, requests_.max_bytes));
  if (requests_.recirculate) return recirculate(*requests_.recirculate);
  if (trace_ != nullptr) traceEvent("leaves through port " + std::to_string(port));
  scratch_.leaving.push_back({port, std::move(frame_)});
}

void MachineRun::recirculate(uint32_t field_list) {
  if (!mayWait(facts_.generation + 1)) return;
  WaitingPass& pass = scratch_.waiting.emplace_back();
  keep(field_list, &pass);
  pass.facts.type = InstanceType::kRecirculated;
  pass.facts.ingress_port = facts_.ingress_port;
  pass.facts.received = static_cast<uint32_t>(frame_.size());
  pass.facts.generation = facts_.generation + 1;
  pass.frame = std::make_shared<PacketBuffer>(std::move(frame_));
  tally_.add(MachineEvent::kRecirculated);
}

void MachineRun::keep(uint32_t field_list, WaitingPass* pass) const {
  pass->field_list = field_list;
  if (field_list == kNoIndex) return;
  for (const uint32_t field : machine_.machine.field_lists[field_list].fields) {
    const FieldSlot& slot = layout_.fields[field];
    const auto first = state_.limbs.begin() + slot.limb;
    pass->kept.insert(pass->kept.end(), first, first + slot.limbs);
  }
}

/// Only metadata comes back: headers come from the packet, and what the machine knows is new.
void MachineRun::restore(const WaitingPass& pass) {
  if (pass.field_list == kNoIndex) return;
  auto from = pass.kept.begin();
  for (const uint32_t field : machine_.machine.field_lists[pass.field_list].fields) {
    const FieldSlot& slot = layout_.fields[field];
    const bool restored =
        layout_.headers[slot.header].metadata && slot.header != machine_.machine.standard.header;
    if (restored) std::copy_n(from, slot.limbs, state_.limbs.begin() + slot.limb);
    from += slot.limbs;
  }
}

}  // namespace jxmodel
