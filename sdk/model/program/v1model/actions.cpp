// Actions: names can repeat, ids cannot.
#include "model/program/v1model/primitives.h"

namespace jxmodel::v1model {
namespace {

Action readShape(const Node& node) {
  Action shape;
  shape.name = node.at("name").string();
  if (shape.name.empty()) node.at("name").fail("is empty");
  uint32_t bytes = 0;
  for (const Node& item : itemsOf(node.at("runtime_data"))) {
    Param param;
    param.name = item.at("name").string();
    param.width = item.at("bitwidth").number(1, kMaxParamWidth);
    bytes += bytesOf(param.width);
    if (bytes > kMaxParamBytes) {
      item.fail("action " + shown(shape.name) + ": its parameters have more than " +
                std::to_string(kMaxParamBytes) + " bytes");
    }
    shape.params.push_back(std::move(param));
  }
  return shape;
}

void noteAssertion(const MachineStep& step, const std::string& construct, Draft* draft) {
  if (!std::holds_alternative<AssertStep>(step)) return;
  draft->notices.push_back(construct + ": an assertion that does not hold is counted only");
}

MachineAction readBody(const Node& node, const Action& shape, const std::string& construct,
                       Draft* draft) {
  MachineAction action;
  action.name = shape.name;
  for (const Param& param : shape.params) action.param_widths.push_back(param.width);
  const std::vector<Node> primitives = itemsOf(node.at("primitives"));
  const Scope scope{&action, false};
  for (const Node& primitive : primitives) {
    action.steps.push_back(
        readPrimitive(primitive, scope, action.steps.size(), primitives.size(), draft));
    action.places.push_back(readSource(primitive));
    noteAssertion(action.steps.back(), construct, draft);
  }
  return action;
}

}  // namespace

void readActions(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "actions")) {
    Action shape = readShape(node);
    draft->symbols.actions.declare(node);
    const std::string construct = "action " + shown(shape.name);
    draft->machine.actions.push_back(
        within(construct, [&] { return readBody(node, shape, construct, draft); }));
    draft->shapes.push_back(std::move(shape));
  }
}

}  // namespace jxmodel::v1model
