// The control flow: the tree of steps that a packet takes.
#include <algorithm>

#include "model/program/json/draft.h"

namespace jxmodel {
namespace {

struct CompareRow {
  const char* name;
  CompareOp op;
};
constexpr CompareRow kCompares[] = {
    {"==", CompareOp::kEqual},     {"!=", CompareOp::kNotEqual}, {"<", CompareOp::kLess},
    {"<=", CompareOp::kLessEqual}, {">", CompareOp::kGreater},   {">=", CompareOp::kGreaterEqual},
};

// Nesting is bounded by that of the document.
class ControlReader {
 public:
  explicit ControlReader(const Draft& draft)
      : draft_(draft), applied_(draft.program.tables.size(), false) {}

  ControlBlock readBlock(const Node& list) {
    ControlBlock block;
    for (const Node& node : list.items(0, kMaxItems)) block.push_back(readStep(node));
    return block;
  }

 private:
  ControlBlock readOptionalBlock(const std::optional<Node>& list) {
    return list ? readBlock(*list) : ControlBlock{};
  }

  ControlStep readStep(const Node& node) {
    if (!node.isObject()) node.fail("must be an object");
    if (node.has("op")) return {readPrimitive(node, draft_, nullptr)};
    if (node.has("apply")) return {readApply(node)};
    if (node.has("if")) return {readBranch(node)};
    node.fail("a step has one of 'apply', 'if' and 'op'");
  }

  ApplyTable readApply(const Node& node) {
    node.expectObject("an apply step", {"apply", "on_hit", "on_miss"});
    const Node reference = node.at("apply");
    ApplyTable apply;
    apply.table = draft_.tables.resolve(reference);
    const Table& table = draft_.program.tables[apply.table];
    if (table.type > JX_RT_TABLE_MATCH_SELECTOR) {
      reference.fail("table " + inQuotes(table.name) + " is no match table");
    }
    if (applied_[apply.table]) {
      reference.fail("table " + inQuotes(table.name) + " is already applied");
    }
    applied_[apply.table] = true;
    apply.on_hit = readOptionalBlock(node.find("on_hit"));
    apply.on_miss = readOptionalBlock(node.find("on_miss"));
    return apply;
  }

  Branch readBranch(const Node& node) {
    node.expectObject("an if step", {"if", "then", "else"});
    const Node condition = node.at("if");
    Branch branch;
    if (condition.isObject() && condition.has("valid")) {
      branch.condition = readValid(condition);
    } else {
      branch.condition = readComparison(condition);
    }
    branch.then_block = readBlock(node.at("then"));
    branch.else_block = readOptionalBlock(node.find("else"));
    return branch;
  }

  // A header is known by its fields: "ipv4" by "ipv4.dst".
  HeaderValid readValid(const Node& node) const {
    node.expectObject("a valid condition", {"valid"});
    const Node reference = node.at("valid");
    const std::string prefix = reference.string() + ".";
    const auto& fields = draft_.program.fields;
    const bool known = std::any_of(fields.begin(), fields.end(), [&](const PacketField& field) {
      return field.name.compare(0, prefix.size(), prefix) == 0;
    });
    if (!known)
      reference.fail("no field of header " + inQuotes(reference.string()) + " is declared");
    return {reference.string()};
  }

  // Bits that a side brings into a comparison: those of its field, none of a constant.
  uint32_t widthOfSide(const Node& node) const {
    if (!node.isObject() || !node.has("field")) return 0;
    return draft_.program.fields[draft_.fields.resolve(node.at("field"))].width;
  }

  Comparison readComparison(const Node& node) const {
    node.expectObject("a comparison", {"left", "op", "right", "mask"});
    const Node left = node.at("left");
    const Node right = node.at("right");
    Comparison comparison;
    comparison.op = node.at("op").choice("comparison", kCompares).op;
    const uint32_t width = std::max(widthOfSide(left), widthOfSide(right));
    if (width == 0 && !left.isObject() && !right.isObject()) {
      node.fail("a comparison needs a field on one side");
    }
    comparison.left = readOperand(left, std::max(width, 1U), draft_, nullptr);
    comparison.right = readOperand(right, std::max(width, 1U), draft_, nullptr);
    if (const auto mask = node.find("mask")) comparison.mask = mask->constant(width);
    return comparison;
  }

  const Draft& draft_;
  std::vector<bool> applied_;  // by index of the table
};

}  // namespace

void readControl(const Node& list, Draft* draft) {
  draft->program.control = ControlReader(*draft).readBlock(list);
}

}  // namespace jxmodel
