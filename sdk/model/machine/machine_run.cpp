#include "model/machine/machine_run.h"

#include "model/base/clock.h"

namespace jxmodel {

MachineScratch::MachineScratch(const CompiledMachine& machine)
    : machine_id(machine.id),
      evaluator(machine.layout),
      key(machine.max_key_bytes),
      limbs(machine.max_limbs) {
  state.fit(machine.layout);
  evaluator.reserve(machine.depth);
}

ScratchLease::ScratchLease(const CompiledMachine& machine) {
  static thread_local std::unique_ptr<MachineScratch> of_thread;
  if (of_thread != nullptr && of_thread->busy) {
    own_ = std::make_unique<MachineScratch>(machine);
    scratch_ = own_.get();
  } else {
    if (of_thread == nullptr || of_thread->machine_id != machine.id) {
      of_thread = std::make_unique<MachineScratch>(machine);
    }
    scratch_ = of_thread.get();
  }
  scratch_->busy = true;
  scratch_->leaving.clear();
  scratch_->waiting.clear();
}

MachineRun::MachineRun(const CompiledMachine& machine, MachineScratch& scratch,
                       const Options& options)
    : machine_(machine),
      layout_(machine.layout),
      scratch_(scratch),
      settings_(*machine.settings.state_),
      state_(scratch.state),
      evaluator_(scratch.evaluator),
      digests_(options.digests),
      trace_(options.trace),
      registers_(settings_.registers, options.trace != nullptr) {
  input_.state = &state_;
  input_.registers = &registers_;
  input_.tally = &tally_;
  if (trace_ != nullptr) asked_random_.emplace(settings_.random);
}

Outcome MachineRun::run(uint32_t ingress_port, PacketBuffer&& packet) {
  frame_ = std::move(packet);
  facts_.ingress_port = ingress_port;
  facts_.received = static_cast<uint32_t>(frame_.size());
  clearForPass();
  parse();
  ingress();
  runWaiting();
  if (trace_ == nullptr) count();
  Outcome outcome;
  if (scratch_.leaving.empty()) {
    outcome.reason = dropped_;
    return outcome;
  }
  outcome.kind = Outcome::Kind::kForwarded;
  outcome.port = scratch_.leaving.front().port;
  outcome.copies = static_cast<uint32_t>(scratch_.leaving.size());
  return outcome;
}

void MachineRun::runWaiting() {
  while (!scratch_.waiting.empty()) {
    const WaitingPass pass = std::move(scratch_.waiting.front());
    scratch_.waiting.pop_front();
    startPass(pass);
  }
}

void MachineRun::clearForPass() {
  state_.clear(layout_);
  requests_ = PacketRequests{};
  stopped_ = false;
  cost_left_ = kMaxCost;
}

void MachineRun::startPass(const WaitingPass& pass) {
  facts_ = pass.facts;
  frame_ = pass.frame->copy();
  clearForPass();
  switch (pass.entry) {
    case WaitingPass::Entry::kParser:
      restore(pass);
      parse();
      return ingress();
    case WaitingPass::Entry::kParserThenEgress:
      // Cloned at the end of ingress: the parser sees a packet as it came in, and what it sets in
      // metadata is forgotten.
      facts_.type = InstanceType::kNormal;
      parse();
      facts_.type = pass.facts.type;
      state_.clearMetadata(layout_);
      restore(pass);
      put(machine_.standard.ingress_port, facts_.ingress_port);
      return egress(facts_.egress_port);
    case WaitingPass::Entry::kEgress:
      state_ = *pass.state;
      return egress(facts_.egress_port);
  }
}

void MachineRun::ingress() {
  if (trace_ != nullptr) traceEvent("ingress");
  runNodes(machine_.machine.ingress.value_or(kNoIndex));
  if (stopped_) return drop(DropReason::kEndless);
  endIngress();
}

/// Whether one more pass may be added, and counts it. Without a generation of its own: 0.
bool MachineRun::mayWait(uint32_t generation) {
  if (generation <= kMaxGenerations && passes_ < kMaxPasses) {
    ++passes_;
    return true;
  }
  tally_.add(MachineEvent::kTooManyGenerations);
  drop(DropReason::kTooOften);
  return false;
}

void MachineRun::count() {
  if (!tally_.any()) return;
  for (size_t i = 0; i < kMachineEventCount; ++i) {
    if (tally_[i] == 0) continue;
    machine_.events[i].fetch_add(tally_[i], std::memory_order_relaxed);
  }
}

uint64_t MachineRun::now() {
  if (!now_) now_ = Clock::instance().now();
  return *now_;
}

/// Microseconds since the machine was made, or since the first packet of a clock that follows
/// captures.
uint64_t MachineRun::timestamp() {
  const uint64_t start = std::max(machine_.started, Clock::instance().began());
  return now() > start ? (now() - start) / 1000 : 0;
}

}  // namespace jxmodel
