// One packet on its way through a machine, with all packets that are made of it.
//
// A pass is one way through parser and ingress, through egress, or through both. Resubmitting,
// recirculating, cloning and multicast add passes, which are run in the order in which they were
// asked for.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "model/machine/compiled_machine.h"
#include "model/machine/settings_state.h"
#include "model/port/packet_buffer.h"
#include "model/trace/outcome.h"
#include "model/trace/trace.h"

namespace jxmodel {

enum class InstanceType : uint8_t {
  kNormal = 0,
  kIngressClone = 1,
  kEgressClone = 2,
  kRecirculated = 4,
  kReplica = 5,
  kResubmitted = 6,
};

/// A packet that leaves.
struct Leaving {
  uint32_t port = 0;
  PacketBuffer packet;
};

/// What a packet has asked for.
struct PacketRequests {
  struct Clone {
    uint64_t session;
    uint32_t field_list;
  };
  std::optional<Clone> clone;
  std::optional<uint32_t> resubmit, recirculate;  // field lists; kNoIndex: none
  std::optional<uint32_t> digest;
  uint32_t max_bytes = UINT32_MAX;  // of what leaves
};

/// What a pass knows beside the state of its packet.
struct PassFacts {
  InstanceType type = InstanceType::kNormal;
  uint32_t ingress_port = 0;
  uint32_t received = 0;  // bytes that came in
  uint32_t payload = 0;   // offset of what the parser left
  uint32_t generation = 0;
  uint32_t egress_port = 0, egress_rid = 0;
  uint32_t max_bytes = UINT32_MAX;  // asked for in ingress
};

/// A pass that waits. Frames and states that several share are copied when their pass begins.
struct WaitingPass {
  enum class Entry : uint8_t { kParser, kParserThenEgress, kEgress };
  Entry entry = Entry::kParser;
  PassFacts facts;
  std::shared_ptr<const PacketBuffer> frame;
  std::shared_ptr<const PacketState> state;  // kEgress
  std::vector<uint64_t> kept;                // values of the field list, word by word
  uint32_t field_list = kNoIndex;
};

/// Memory that the packets of one thread use one after the other.
struct MachineScratch {
  explicit MachineScratch(const CompiledMachine& machine);

  const uint64_t machine_id;
  PacketState state;
  Evaluator evaluator;
  std::vector<uint8_t> key;
  std::vector<uint64_t> limbs;
  std::vector<uint8_t> bytes;  // inputs of calculations
  std::deque<WaitingPass> waiting;
  std::vector<Leaving> leaving;
  bool busy = false;
};

class MachineRun {
 public:
  struct Options {
    std::vector<Digest>* digests = nullptr;  // appended to where there is a place for them
    /// Somebody only asks: nothing is counted, metered, learned or written.
    Trace* trace = nullptr;
  };
  MachineRun(const CompiledMachine& machine, MachineScratch& scratch, const Options& options);

  /// Runs a packet; what leaves is in the scratch's `leaving`.
  Outcome run(uint32_t ingress_port, PacketBuffer&& packet);

 private:
  static constexpr uint32_t kMaxStates = 1000;    // of one way through the parser
  static constexpr int64_t kMaxCost = 1'000'000;  // of the steps of one pass
  static constexpr uint32_t kMaxGenerations = 8;
  static constexpr size_t kMaxPasses = 4096;  // of one packet that came in

  // machine_run.cpp: passes.
  void runWaiting();
  void startPass(const WaitingPass& pass);
  void clearForPass();
  void ingress();
  void count();
  bool mayWait(uint32_t generation);
  void put(const StandardSlot& slot, uint64_t value) {
    if (slot.limb != kNoIndex) state_.limbs[slot.limb] = value & slot.mask;
  }
  uint64_t get(const StandardSlot& slot) const {
    return slot.limb == kNoIndex ? 0 : state_.limbs[slot.limb];
  }
  void drop(DropReason reason) { dropped_ = reason; }
  uint64_t now();
  uint64_t timestamp();

  // ends.cpp: what follows the pipelines.
  void endIngress();
  void cloneIngress(const PacketRequests::Clone& clone);
  void cloneEgress(const PacketRequests::Clone& clone);
  template <typename Use>
  void forCopies(uint64_t session, Use use);
  void sampleDigest(uint32_t learn);
  void resubmit(uint32_t field_list);
  void replicate(uint32_t group);
  void egress(uint32_t port);
  void recirculate(uint32_t field_list);
  void keep(uint32_t field_list, WaitingPass* pass) const;
  void restore(const WaitingPass& pass);
  std::shared_ptr<const PacketBuffer> sharedFrame();

  // parser.cpp
  void parse();
  uint32_t runParser();
  uint32_t runState(const CompiledState& state);
  uint32_t runOp(const CompiledParserOp& op);
  uint32_t extract(uint32_t header, const CompiledExpression* varbit_bits);
  std::optional<uint32_t> readLength(const CompiledExpression& expression, uint64_t* bits);
  uint32_t advance(const CompiledExpression& bits);
  const CompiledTransition* choose(const CompiledState& state);
  bool matches(const CompiledState& state, const CompiledTransition& transition, uint64_t key);
  uint32_t errorOf(ParserFault fault) const;
  void countParserError(uint32_t error);

  // steps.cpp
  void runAction(const CompiledAction& action, const uint8_t* params);
  void runWordStep(const CompiledActionStep& step);
  /// The next step; the number of steps at the end.
  uint32_t runStep(const CompiledActionStep& step, uint32_t at);
  void assign(const CompiledActionStep& step);
  void store(uint32_t target, const uint64_t* limbs, uint32_t width);
  void store64(uint32_t target, uint64_t value);
  uint32_t fieldOf(const CompiledTarget& target);
  uint32_t headerOf(uint32_t ref);
  void copyHeader(uint32_t target, uint32_t source);
  void markToDrop(const CompiledActionStep& step);
  void hash(const CompiledActionStep& step);
  void random(const CompiledActionStep& step);
  void readRegister(const CompiledActionStep& step);
  void writeRegister(const CompiledActionStep& step);
  void countInto(const CompiledActionStep& step);
  void executeMeter(const CompiledActionStep& step);
  Colour meter(uint32_t number, uint32_t index);

  // flow.cpp: nodes and tables.
  void runNodes(uint32_t first);
  uint32_t applyTable(const CompiledTable& table, const CompiledNode& node);
  uint32_t nextOf(const CompiledTable& table, bool hit,
                  const CompiledTable::ActionOfTable* action) const;
  void writeKey(const std::vector<CompiledKeyPart>& parts, uint8_t* out);
  void noteTableHit(const CompiledTable& table, uint32_t slot, uint32_t handle);
  uint32_t runCall(const CompiledCall& call, const CompiledNode& node);
  bool holds(const CompiledCondition& condition, const CompiledNode& node);

  // calculations.cpp
  uint64_t calculate(uint32_t calculation);
  void verifyChecksums();
  void updateChecksums();

  // deparser.cpp
  uint32_t bytesOfHeaders() const;
  void deparse(uint32_t max_bytes);

  // run_trace.cpp: all of them only where somebody asks.
  void traceState(const CompiledState& state);
  void traceParserError(uint32_t error);
  void traceStep(const CompiledActionStep& step);
  void traceTable(const CompiledTable& table, const CompiledNode& node,
                  const MatchTable::Applied& applied, const TableReader::Found& found);
  void traceNode(const CompiledNode& node, bool is_condition, bool holds);
  void traceEvent(std::string what);
  std::string textOf(const CompiledActionStep& step);

  const CompiledMachine& machine_;
  const StateLayout& layout_;
  MachineScratch& scratch_;
  MachineSettings::State& settings_;
  PacketState& state_;
  Evaluator& evaluator_;
  std::vector<Digest>* const digests_;
  Trace* const trace_;
  RegisterView registers_;
  MachineTally tally_;
  ExpressionInput input_;
  std::optional<RandomNumbers> asked_random_;  // where somebody asks
  std::vector<uint32_t> extracted_;            // headers, where somebody asks

  PacketBuffer frame_;
  PassFacts facts_;
  PacketRequests requests_;
  bool exited_ = false;
  bool stopped_ = false;  // too many steps
  int64_t cost_left_ = kMaxCost;
  size_t passes_ = 1;
  std::optional<uint64_t> now_;
  DropReason dropped_ = DropReason::kNone;
};

/// The thread's scratch memory for a machine, for one packet.
class ScratchLease {
 public:
  explicit ScratchLease(const CompiledMachine& machine);
  ~ScratchLease() { scratch_->busy = false; }
  ScratchLease(const ScratchLease&) = delete;
  ScratchLease& operator=(const ScratchLease&) = delete;

  MachineScratch& operator*() const { return *scratch_; }
  MachineScratch* operator->() const { return scratch_; }

 private:
  std::unique_ptr<MachineScratch> own_;  // where the thread's is in use
  MachineScratch* scratch_;
};

}  // namespace jxmodel
