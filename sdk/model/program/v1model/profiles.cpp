// Action profiles and selectors.
#include <algorithm>

#include "model/program/v1model/pipelines.h"

namespace jxmodel::v1model {
namespace {

uint32_t addSelectorCalculation(const Node& selector, const std::string& name, Draft* draft) {
  Calculation calculation;
  calculation.name = name;
  calculation.algorithm =
      readAlgorithm(selector.at("algo"), "action profile " + shown(name), draft);
  readInputs(selector.at("input"), *draft, &calculation);
  draft->machine.calculations.push_back(std::move(calculation));
  return static_cast<uint32_t>(draft->machine.calculations.size() - 1);
}

Profile readProfile(const Node& node, const std::string& name, Draft* draft) {
  Profile profile(node);
  profile.name = name;
  const Node size = node.at("max_size");
  profile.size = size.number(0, UINT32_MAX);
  if (profile.size == 0) size.fail("size 0 is below 1");
  if (profile.size > kMaxTableSize) {
    size.fail("size " + std::to_string(profile.size) + " is above the limit " +
              std::to_string(kMaxTableSize));
  }
  if (const auto selector = node.findValue("selector")) {
    profile.calculation = addSelectorCalculation(*selector, name, draft);
  }
  return profile;
}

std::optional<Node> profileNameOf(const Node& table) {
  const auto name = table.findValue("action_profile");
  return name ? name : table.findValue("act_prof_name");
}

bool sameItems(std::vector<uint32_t> left, std::vector<uint32_t> right) {
  std::sort(left.begin(), left.end());
  std::sort(right.begin(), right.end());
  return left == right;
}

}  // namespace

void readProfiles(const Node& pipeline, Draft* draft, Pipelines* pipelines) {
  for (const Node& node : itemsOf(pipeline, "action_profiles")) {
    node.at("id").number(0, UINT32_MAX);
    const std::string name = pipelines->profile_names.declare(node);
    pipelines->profiles.push_back(
        within("action profile " + shown(name), [&] { return readProfile(node, name, draft); }));
  }
}

size_t useProfile(const CompiledTable& table, bool with_selector,
                  const std::vector<uint32_t>& actions, Pipelines* pipelines) {
  const auto name = profileNameOf(table.node);
  if (!name) table.node.fail("member 'action_profile' is missing");
  const uint32_t index = pipelines->profile_names.resolve(*name);
  Profile& profile = pipelines->profiles[index];
  if (with_selector && !profile.calculation) {
    name->fail("action profile " + shown(profile.name) + " has no selector");
  }
  if (!profile.used) profile.actions = actions;
  if (!sameItems(profile.actions, actions)) {
    table.node.fail("its actions are not those of the other tables of action profile " +
                    shown(profile.name));
  }
  profile.used = true;
  return index;
}

}  // namespace jxmodel::v1model
