#include "unit/pipeline/testbed.h"

#include <stdexcept>

namespace jxpipelinetest {
namespace {

using jxmodel::MatchResult;

std::shared_ptr<const jxmodel::Program> checked(std::shared_ptr<const jxmodel::Program> program,
                                                const jxmodel::LoadError& error) {
  if (program == nullptr) throw std::runtime_error(error.text());
  return program;
}

std::shared_ptr<const jxmodel::Program> parsed(const std::string& json) {
  jxmodel::LoadError error;
  auto program = jxmodel::parseProgramJson(json, "test", &error);
  return checked(std::move(program), error);
}

void must(jx_status_t status) {
  if (status != JX_SUCCESS) throw std::runtime_error("status " + std::to_string(status));
}

}  // namespace

Testbed::Testbed(const std::string& json) : Testbed(parsed(json)) {}

Testbed::Testbed(std::shared_ptr<const jxmodel::Program> program) {
  std::string error;
  device_ =
      jxmodel::Device::create(1, jxmodel::Device::Kind::kPhysical, {std::move(program)}, 0, &error);
  if (device_ == nullptr) throw std::runtime_error(error);
  pipeline_ = std::make_unique<jxmodel::Pipeline>(device_->core(), device_->forwarding());
}

std::unique_ptr<Testbed> Testbed::delivered(const std::string& name) {
  jxmodel::LoadError error;
  auto program =
      jxmodel::loadProgramJson(std::string(JEX_PROGRAMS_DIR) + '/' + name + ".json", &error);
  return std::unique_ptr<Testbed>(new Testbed(checked(std::move(program), error)));
}

jxmodel::TableState& Testbed::table(const std::string& name) const {
  for (jxmodel::TableState* state : device_->infos().front()->states()) {
    if (state->table->name == name) return *state;
  }
  throw std::runtime_error("no table " + name);
}

jxmodel::BoundAction Testbed::action(const std::string& name, const Packed& params) const {
  const jxmodel::Action* const found = device_->infos().front()->program().actionByName(name);
  if (found == nullptr) throw std::runtime_error("no action " + name);
  return {found, params.data()};
}

uint32_t Testbed::add(const std::string& name, uint32_t handle, const Packed& key,
                      uint32_t priority, const MatchResult& result) {
  const jxmodel::MutexLock lock(device_->mutex());
  uint32_t slot = jxmodel::kNoSlot;
  must(table(name).match->add({handle, key.data(), priority, 0, result}, &slot));
  return slot;
}

uint32_t Testbed::addAction(const std::string& name, uint32_t handle, const Packed& key,
                            const std::string& action_name, const Packed& params,
                            uint32_t priority) {
  MatchResult result;
  result.action = action(action_name, params);
  return add(name, handle, key, priority, result);
}

uint32_t Testbed::addMember(const std::string& name, uint32_t handle,
                            const std::string& action_name, const Packed& params) {
  const jxmodel::MutexLock lock(device_->mutex());
  uint32_t slot = jxmodel::kNoSlot;
  must(table(name).members->add(handle, handle, action(action_name, params), &slot));
  return slot;
}

uint32_t Testbed::addGroup(const std::string& name, uint32_t handle,
                           const std::vector<uint32_t>& members) {
  std::vector<jxmodel::SelectorTable::Member> active;
  for (const uint32_t member : members) active.push_back({member, true});
  const jxmodel::MutexLock lock(device_->mutex());
  uint32_t slot = jxmodel::kNoSlot;
  must(table(name).groups->create(handle, handle, 0, active, &slot));
  return slot;
}

jxmodel::Outcome Testbed::run(Bytes* frame, uint32_t ingress_port, jxmodel::Trace* trace) {
  const auto size = static_cast<uint32_t>(frame->size());
  return pipeline_->run({frame->data(), size, size, ingress_port}, &digests, trace);
}

MatchResult memberResult(uint32_t slot) {
  MatchResult result;
  result.kind = MatchResult::Kind::kMember;
  result.slot = slot;
  return result;
}

MatchResult groupResult(uint32_t slot) {
  MatchResult result;
  result.kind = MatchResult::Kind::kGroup;
  result.slot = slot;
  return result;
}

}  // namespace jxpipelinetest
