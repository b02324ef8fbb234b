#include "rig.h"

#include <stdexcept>

#include "model/program/load/load.h"
#include "model/runtime/rt_info.h"

namespace bench {
namespace {

using jxmodel::MatchResult;

/// The low `bytes` bytes of a number in network byte order; zeros in front of more than eight.
void append(uint64_t value, uint32_t bytes, Rig::Bytes* out) {
  for (uint32_t i = bytes; i-- > 0;) {
    out->push_back(i >= 8 ? 0 : static_cast<uint8_t>(value >> (8 * i)));
  }
}

bool isNamed(const std::string& full, const std::string& name) {
  if (full == name) return true;
  return full.size() > name.size() && full[full.size() - name.size() - 1] == '.' &&
         full.compare(full.size() - name.size(), name.size(), name) == 0;
}

void must(jx_status_t status, const std::string& what) {
  if (status != JX_SUCCESS) {
    throw std::runtime_error(what + ": status " + std::to_string(status));
  }
}

}  // namespace

Rig::Rig(const std::string& spec) {
  jxmodel::LoadError load_error;
  auto program = jxmodel::loadProgram(spec, &load_error);
  if (program == nullptr) throw std::runtime_error(load_error.text());
  std::string error;
  device_ =
      jxmodel::Device::create(1, jxmodel::Device::Kind::kPhysical, {std::move(program)}, 0, &error);
  if (device_ == nullptr) throw std::runtime_error(error);
  pipeline_ = std::make_unique<jxmodel::Pipeline>(device_->core(), device_->forwarding());
}

jxmodel::TableState& Rig::table(const std::string& name) const {
  for (jxmodel::TableState* state : device_->infos().front()->states()) {
    if (isNamed(state->table->name, name)) return *state;
  }
  throw std::runtime_error("no table " + name);
}

const jxmodel::Action& Rig::action(const std::string& name) const {
  for (const jxmodel::Action& action : device_->infos().front()->program().actions) {
    if (isNamed(action.name, name)) return action;
  }
  throw std::runtime_error("no action " + name);
}

Rig::Bytes Rig::packed(const std::vector<jxmodel::KeyField>& fields,
                       const std::vector<Part>& key) const {
  if (fields.size() != key.size()) throw std::runtime_error("a key of other parts");
  Bytes bytes;
  for (size_t i = 0; i < key.size(); ++i) {
    append(key[i].value, fields[i].value_bytes, &bytes);
    append(key[i].more, fields[i].packed_bytes - fields[i].value_bytes, &bytes);
  }
  return bytes;
}

Rig::Bytes Rig::packed(const Call& call) const {
  Bytes bytes;
  const std::vector<jxmodel::Param>& params = action(call.action).params;
  for (size_t i = 0; i < params.size(); ++i) {
    append(call.params.at(i), jxmodel::bytesOf(params[i].width), &bytes);
  }
  bytes.push_back(0);  // so that there is one
  return bytes;
}

void Rig::add(const std::string& name, const std::vector<Part>& key, uint32_t priority,
              const MatchResult& result) {
  const jxmodel::TableState& state = table(name);
  const Bytes bytes = packed(state.table->key, key);
  const jxmodel::MutexLock lock(device_->mutex());
  uint32_t slot = jxmodel::kNoSlot;
  must(state.match->add({++handles_[&state], bytes.data(), priority, 0, result}, &slot), name);
}

void Rig::add(const std::string& name, const std::vector<Part>& key, const Call& call,
              uint32_t priority) {
  const Bytes params = packed(call);
  MatchResult result;
  result.action = {&action(call.action), params.data()};
  add(name, key, priority, result);
}

uint32_t Rig::addMember(const std::string& name, const Call& call) {
  const Bytes params = packed(call);
  const jxmodel::TableState& state = table(name);
  const uint32_t handle = ++handles_[&state];
  const jxmodel::MutexLock lock(device_->mutex());
  uint32_t slot = jxmodel::kNoSlot;
  must(state.members->add(handle, handle, {&action(call.action), params.data()}, &slot), name);
  return slot;
}

void Rig::addReference(const std::string& name, const std::vector<Part>& key, uint32_t member) {
  MatchResult result;
  result.kind = MatchResult::Kind::kMember;
  result.slot = member;
  add(name, key, 0, result);
}

}  // namespace bench
