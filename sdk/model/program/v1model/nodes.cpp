// The way through tables and conditions.
#include <algorithm>

#include "model/program/v1model/expressions.h"
#include "model/program/v1model/pipelines.h"

namespace jxmodel::v1model {
namespace {

constexpr const char* kHit = "__HIT__";
constexpr const char* kMiss = "__MISS__";

const char* pipelineName(bool ingress) { return ingress ? "ingress" : "egress"; }

/// Nodes in the machine's order: all tables, then all conditions.
class NodeReader {
 public:
  NodeReader(const Pipelines& pipelines, Draft* draft) : pipelines_(pipelines), draft_(*draft) {
    for (const CompiledTable& table : pipelines.tables) declare(table.node, table.ingress);
    for (const Condition& condition : pipelines.conditions) {
      declare(condition.node, condition.ingress);
    }
  }

  void run() {
    for (const CompiledTable& table : pipelines_.tables) {
      within(table.construct(), [&] { addNode(table.name, table.node, readTable(table)); });
    }
    for (const Condition& condition : pipelines_.conditions) {
      within("conditional " + shown(condition.name),
             [&] { addNode(condition.name, condition.node, readConditional(condition)); });
    }
    draft_.machine.ingress = next(pipelines_.ingress.at("init_table"), true);
    draft_.machine.egress = next(pipelines_.egress.at("init_table"), false);
    refuseCycles();
  }

 private:
  using Next = std::optional<uint32_t>;

  void declare(const Node& node, bool ingress) {
    names_.declare(node);
    nodes_.push_back(node);
    ingress_.push_back(ingress);
  }

  template <typename Kind>
  void addNode(const std::string& name, const Node& node, Kind kind) {
    draft_.machine.nodes.push_back({name, std::move(kind), readSource(node)});
  }

  // Null is the end of the pipeline.
  Next next(const Node& reference, bool ingress) const {
    if (reference.isNull()) return std::nullopt;
    const auto node = names_.find(reference.string());
    const std::string text = "next node " + shown(reference.string());
    if (!node) reference.fail(text + " does not exist");
    if (ingress_[*node] != ingress) {
      reference.fail(text + " belongs to pipeline " + pipelineName(!ingress));
    }
    return *node;
  }

  // What "next_tables" says of an action, of a hit or a miss.
  struct NextNodes {
    std::unordered_map<std::string, Next> of;
    Next base;
    bool has(const std::string& name) const { return of.count(name) != 0; }
    Next at(const std::string& name) const {
      const auto found = of.find(name);
      return found == of.end() ? base : found->second;
    }
  };

  NextNodes readNextNodes(const CompiledTable& table) const {
    NextNodes nodes;
    if (const auto base = table.node.findValue("base_default_next")) {
      nodes.base = next(*base, table.ingress);
    }
    const auto list = table.node.findValue("next_tables");
    if (!list) return nodes;
    for (const auto& [name, reference] : list->members()) {
      nodes.of[name] = next(reference, table.ingress);
      if (name != kHit && name != kMiss) refuseForeignAction(table, name, reference);
    }
    const bool by_hit = nodes.has(kHit) || nodes.has(kMiss);
    const size_t hit_names = (nodes.has(kHit) ? 1u : 0u) + (nodes.has(kMiss) ? 1u : 0u);
    if (by_hit && nodes.of.size() != hit_names) {
      list->fail("next_tables names both actions and " + std::string(kHit) + " or " + kMiss);
    }
    return nodes;
  }

  void refuseForeignAction(const CompiledTable& table, const std::string& name,
                           const Node& reference) const {
    const bool own = std::any_of(table.actions.begin(), table.actions.end(), [&](uint32_t action) {
      return draft_.shapes[action].name == name;
    });
    if (!own) reference.fail("action " + shown(name) + " is none of its actions");
  }

  std::variant<TableNode, CallNode, ConditionNode> readTable(const CompiledTable& table) const {
    const NextNodes nodes = readNextNodes(table);
    if (table.helper) return readHelper(table, nodes);
    TableNode node;
    node.table = *table.index;
    node.key = table.key;
    node.key_masks = table.key_masks;
    for (const uint32_t action : table.actions) {
      node.actions.push_back({action, nodes.at(draft_.shapes[action].name)});
    }
    node.by_hit = nodes.has(kHit) || nodes.has(kMiss);
    node.base_next = nodes.has(kMiss) ? nodes.at(kMiss) : nodes.base;
    if (node.by_hit) {
      node.on_hit = nodes.at(kHit);
      node.on_miss = nodes.at(kMiss);
    }
    if (table.counter) node.direct_counter = draft_.machine.counters[*table.counter].table;
    node.direct_meter = table.meter;
    const bool selects = draft_.out.program.tables[*table.index].type == JX_RT_TABLE_MATCH_SELECTOR;
    if (selects) node.selector = pipelines_.profiles[*table.profile].calculation;
    return node;
  }

  CallNode readHelper(const CompiledTable& table, const NextNodes& nodes) const {
    const ReadCall call = readCall(table.node.at("default_entry"), table, draft_);
    CallNode node;
    node.action = call.action;
    node.params = call.params;
    node.next = nodes.at(nodes.has(kMiss) ? kMiss : draft_.shapes[call.action].name);
    return node;
  }

  ConditionNode readConditional(const Condition& condition) {
    const Node& node = condition.node;
    return {readCondition(node.at("expression"), {}, &draft_),
            next(node.at("true_next"), condition.ingress),
            next(node.at("false_next"), condition.ingress)};
  }

  // --- cycles

  std::vector<uint32_t> followers(uint32_t index) const {
    std::vector<uint32_t> all;
    const auto add = [&all](const Next& node) {
      if (node) all.push_back(*node);
    };
    const auto& node = draft_.machine.nodes[index].node;
    if (const auto* table = std::get_if<TableNode>(&node)) {
      for (const TableAction& action : table->actions) add(action.next);
      add(table->on_hit);
      add(table->on_miss);
      add(table->base_next);
    } else if (const auto* call = std::get_if<CallNode>(&node)) {
      add(call->next);
    } else {
      add(std::get<ConditionNode>(node).on_true);
      add(std::get<ConditionNode>(node).on_false);
    }
    return all;
  }

  enum class Visit : uint8_t { kNever, kOpen, kDone };
  struct Step {
    uint32_t node;
    std::vector<uint32_t> left;  // followers that are not visited yet
  };

  void refuseCycles() const {
    std::vector<Visit> visits(nodes_.size(), Visit::kNever);
    for (uint32_t node = 0; node < nodes_.size(); ++node) visitFrom(node, &visits);
  }

  // Depth first, without the machine's stack.
  void visitFrom(uint32_t start, std::vector<Visit>* visits) const {
    if ((*visits)[start] != Visit::kNever) return;
    (*visits)[start] = Visit::kOpen;
    std::vector<Step> path{{start, followers(start)}};
    while (!path.empty()) {
      Step& step = path.back();
      if (step.left.empty()) {
        (*visits)[step.node] = Visit::kDone;
        path.pop_back();
        continue;
      }
      const uint32_t follower = step.left.back();
      step.left.pop_back();
      if ((*visits)[follower] == Visit::kOpen) refuseCycle(follower);
      if ((*visits)[follower] == Visit::kDone) continue;
      (*visits)[follower] = Visit::kOpen;
      path.push_back({follower, followers(follower)});
    }
  }

  [[noreturn]] void refuseCycle(uint32_t node) const {
    nodes_[node].fail("pipeline " + std::string(pipelineName(ingress_[node])) + ": " +
                      shown(draft_.machine.nodes[node].name) + " follows itself");
  }

  const Pipelines& pipelines_;
  Draft& draft_;
  Names names_{"table or conditional"};
  std::vector<Node> nodes_;
  std::vector<bool> ingress_;
};

}  // namespace

void readNodes(const Pipelines& pipelines, Draft* draft) { NodeReader(pipelines, draft).run(); }

}  // namespace jxmodel::v1model
