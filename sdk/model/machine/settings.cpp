#include "model/machine/settings.h"

#include "model/machine/settings_state.h"
#include "model/program/program.h"

namespace jxmodel {
namespace {

std::string noSuch(const char* kind, uint32_t number) {
  return std::string(kind) + ' ' + std::to_string(number) + " does not exist";
}

std::string outside(const char* kind, const std::string& name, uint32_t index, uint32_t size) {
  return "index " + std::to_string(index) + " is outside " + kind + ' ' + name + ", which has " +
         std::to_string(size) + " cells";
}

std::string rateRefusal(const std::optional<MachineSettings::Rates>& rates) {
  if (!rates) return {};
  for (const MachineSettings::Rate& rate : {rates->committed, rates->peak}) {
    if (!(rate.per_second >= 0)) return "a rate of a meter is not negative";
  }
  return {};
}

}  // namespace

MachineSettings::State::State(const Machine& described)
    : replication(&reclaimer), machine(described) {
  for (const MachineRegister& one : machine.registers) registers.emplace_back(one.size, one.width);
  for (const MachineMeter& one : machine.meters) meters.emplace_back(one.size, one.counts_bytes);
  for (const ValueSet& one : machine.value_sets) value_sets.emplace_back(one, &reclaimer);
}

MachineSettings::MachineSettings(const Machine& machine)
    : state_(std::make_unique<State>(machine)) {}
MachineSettings::~MachineSettings() = default;

// --- registers

std::string MachineSettings::readRegister(uint32_t reg, uint32_t index,
                                          std::vector<uint8_t>* value) const {
  if (reg >= state_->registers.size()) return noSuch("register", reg);
  const RegisterArray& cells = state_->registers[reg];
  if (index >= cells.size()) {
    return outside("register", state_->machine.registers[reg].name, index, cells.size());
  }
  std::vector<uint64_t> limbs(cells.limbs());
  cells.read(index, limbs.data());
  value->resize(bytesOf(cells.width()));
  limbsToBytes(limbs.data(), cells.limbs(), value->data(), bytesOf(cells.width()));
  return {};
}

std::string MachineSettings::writeRegister(uint32_t reg, uint32_t index,
                                           const std::vector<uint8_t>& value) {
  if (reg >= state_->registers.size()) return noSuch("register", reg);
  RegisterArray& cells = state_->registers[reg];
  const std::string& name = state_->machine.registers[reg].name;
  if (index >= cells.size()) return outside("register", name, index, cells.size());
  const uint32_t bytes = bytesOf(cells.width());
  if (value.size() != bytes) {
    return "a cell of register " + name + " has " + std::to_string(bytes) + " bytes, not " +
           std::to_string(value.size());
  }
  std::vector<uint64_t> limbs(cells.limbs());
  bytesToLimbs(value.data(), bytes, limbs.data(), cells.limbs());
  const std::vector<uint64_t> given = limbs;
  cutTop(limbs.data(), cells.width());
  if (limbs != given) {
    return "the value is wider than the " + std::to_string(cells.width()) + " bits of register " +
           name;
  }
  cells.write(index, limbs.data());
  return {};
}

std::string MachineSettings::resetRegister(uint32_t reg) {
  if (reg >= state_->registers.size()) return noSuch("register", reg);
  state_->registers[reg].reset();
  return {};
}

// --- meters

std::string MachineSettings::meterRates(uint32_t meter, uint32_t index,
                                        std::optional<Rates>* rates) const {
  if (meter >= state_->meters.size()) return noSuch("meter", meter);
  const MeterArray& cells = state_->meters[meter];
  if (index >= cells.size()) {
    return outside("meter", state_->machine.meters[meter].name, index, cells.size());
  }
  *rates = cells.rates(index);
  return {};
}

std::string MachineSettings::setMeterRates(uint32_t meter, uint32_t index,
                                           const std::optional<Rates>& rates) {
  if (meter >= state_->meters.size()) return noSuch("meter", meter);
  MeterArray& cells = state_->meters[meter];
  if (index >= cells.size()) {
    return outside("meter", state_->machine.meters[meter].name, index, cells.size());
  }
  std::string reason = rateRefusal(rates);
  if (reason.empty()) cells.setRates(index, rates);
  return reason;
}

std::string MachineSettings::setAllMeterRates(uint32_t meter, const std::optional<Rates>& rates) {
  if (meter >= state_->meters.size()) return noSuch("meter", meter);
  std::string reason = rateRefusal(rates);
  if (reason.empty()) state_->meters[meter].setAllRates(rates);
  return reason;
}

// --- value sets

std::string MachineSettings::addMember(uint32_t value_set, const Member& member) {
  if (value_set >= state_->value_sets.size()) return noSuch("value set", value_set);
  const MutexLock lock(state_->mutex);
  return state_->value_sets[value_set].add(member);
}

std::string MachineSettings::removeMember(uint32_t value_set, const Member& member) {
  if (value_set >= state_->value_sets.size()) return noSuch("value set", value_set);
  const MutexLock lock(state_->mutex);
  return state_->value_sets[value_set].remove(member);
}

std::vector<MachineSettings::Member> MachineSettings::members(uint32_t value_set) const {
  if (value_set >= state_->value_sets.size()) return {};
  const MutexLock lock(state_->mutex);
  return state_->value_sets[value_set].members();
}

// --- multicast

std::string MachineSettings::createGroup(uint32_t group) {
  const MutexLock lock(state_->mutex);
  return state_->replication.createGroup(group);
}

std::string MachineSettings::deleteGroup(uint32_t group) {
  const MutexLock lock(state_->mutex);
  return state_->replication.deleteGroup(group);
}

uint32_t MachineSettings::createNode(Node node) {
  const MutexLock lock(state_->mutex);
  return state_->replication.createNode(std::move(node));
}

std::string MachineSettings::updateNode(uint32_t node, std::vector<uint32_t> ports) {
  const MutexLock lock(state_->mutex);
  return state_->replication.updateNode(node, std::move(ports));
}

std::string MachineSettings::associate(uint32_t group, uint32_t node) {
  const MutexLock lock(state_->mutex);
  return state_->replication.associate(group, node);
}

std::vector<MachineSettings::Group> MachineSettings::groups() const {
  const MutexLock lock(state_->mutex);
  return state_->replication.groups();
}

std::vector<MachineSettings::Node> MachineSettings::nodes() const {
  const MutexLock lock(state_->mutex);
  return state_->replication.nodes();
}

// --- clone sessions

std::string MachineSettings::setSession(const Session& session) {
  const MutexLock lock(state_->mutex);
  return state_->replication.setSession(session);
}

std::string MachineSettings::deleteSession(uint32_t session) {
  const MutexLock lock(state_->mutex);
  return state_->replication.deleteSession(session);
}

std::vector<MachineSettings::Session> MachineSettings::sessions() const {
  const MutexLock lock(state_->mutex);
  return state_->replication.sessions();
}

void MachineSettings::seed(uint64_t seed) { state_->random.seed(seed); }

}  // namespace jxmodel
