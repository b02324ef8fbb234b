#include "model/trace/trace.h"

#include <nlohmann/json.hpp>

namespace jxmodel {
namespace {

std::string hex(const std::vector<uint8_t>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "0x";
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string textOf(const Program& program, const Operand& operand) {
  if (const auto* field = std::get_if<FieldRef>(&operand)) return program.fields[field->index].name;
  if (const auto* param = std::get_if<ParamRef>(&operand)) {
    return "parameter " + std::to_string(param->index + 1);
  }
  return hex(std::get<Constant>(operand).value);
}

const char* textOf(CompareOp op) {
  switch (op) {
    case CompareOp::kEqual:
      return " == ";
    case CompareOp::kNotEqual:
      return " != ";
    case CompareOp::kLess:
      return " < ";
    case CompareOp::kLessEqual:
      return " <= ";
    case CompareOp::kGreater:
      return " > ";
    case CompareOp::kGreaterEqual:
      return " >= ";
  }
  return " ? ";
}

/// "  (l2.p4:34: dmac.apply())", without what stands in the step already.
std::string textOf(const Trace::Step& step, const Trace::Source& source) {
  if (source.file.empty()) return {};
  std::string text = "  (" + source.file + ':' + std::to_string(source.line);
  if (!source.fragment.empty() && source.fragment != step.what) text += ": " + source.fragment;
  return text + ')';
}

std::string textOf(const Trace::Step& step) {
  if (step.kind == Trace::Step::Kind::kBranch) {
    return "if " + step.what + (step.taken ? ": yes" : ": no");
  }
  if (step.kind == Trace::Step::Kind::kStep) return step.what;
  std::string text = "table " + step.what + (step.taken ? ": hit" : ": miss");
  if (step.entry_handle != 0) {
    text += step.taken ? ", entry " : ", default entry ";
    text += std::to_string(step.entry_handle);
  }
  if (step.group_handle != 0) text += ", group " + std::to_string(step.group_handle);
  if (step.member_handle != 0) text += ", member " + std::to_string(step.member_handle);
  if (step.action.empty()) return text + ", no action";
  text += ", " + step.action + '(';
  const char* separator = "";
  for (const Trace::Parameter& parameter : step.parameters) {
    text += separator + parameter.name + '=' + hex(parameter.value);
    separator = ", ";
  }
  return text + ')';
}

nlohmann::json jsonOfStep(const Trace::Step& step) {
  if (step.kind == Trace::Step::Kind::kBranch) return {{"if", step.what}, {"holds", step.taken}};
  if (step.kind == Trace::Step::Kind::kStep) return {{"step", step.what}};
  nlohmann::json json = {{"table", step.what}, {"hit", step.taken}};
  if (step.entry_handle != 0) json["entry"] = step.entry_handle;
  if (step.group_handle != 0) json["group"] = step.group_handle;
  if (step.member_handle != 0) json["member"] = step.member_handle;
  if (step.action.empty()) return json;
  json["action"] = step.action;
  json["parameters"] = nlohmann::json::object();
  for (const Trace::Parameter& parameter : step.parameters) {
    json["parameters"][parameter.name] = hex(parameter.value);
  }
  return json;
}

nlohmann::json jsonOf(const Trace::Step& step) {
  nlohmann::json json = jsonOfStep(step);
  if (step.source.file.empty()) return json;
  json["source"] = {
      {"file", step.source.file}, {"line", step.source.line}, {"fragment", step.source.fragment}};
  return json;
}

}  // namespace

const char* reasonOf(DropReason reason) {
  switch (reason) {
    case DropReason::kNone:
      return "not dropped";
    case DropReason::kMalformed:
      return "malformed";
    case DropReason::kDropAction:
      return "dropped by the program";
    case DropReason::kExpired:
      return "time to live or hop limit reached 0";
    case DropReason::kNoMember:
      return "group without an active member";
    case DropReason::kNoEgress:
      return "no port was chosen";
    case DropReason::kNoCopies:
      return "multicast group without ports";
    case DropReason::kTooOften:
      return "resubmitted or recirculated too often";
    case DropReason::kEndless:
      return "stopped after too many steps";
  }
  return "unknown";
}

std::string textOf(const Program& program, const Branch& branch) {
  if (const auto* valid = std::get_if<HeaderValid>(&branch.condition)) {
    return valid->header + " is valid";
  }
  const auto& comparison = std::get<Comparison>(branch.condition);
  std::string text = textOf(program, comparison.left);
  if (comparison.mask) text += " & " + hex(*comparison.mask);
  return text + textOf(comparison.op) + textOf(program, comparison.right);
}

std::string textOf(const Program& program, const Primitive& primitive) {
  switch (primitive.op) {
    case PrimitiveOp::kSet:
      return "set " + program.fields[primitive.field].name + " to " +
             textOf(program, primitive.source);
    case PrimitiveOp::kForward:
      return "forward to port " + textOf(program, primitive.source);
    case PrimitiveOp::kFlood:
      return "flood";
    case PrimitiveOp::kDrop:
      return "drop";
    case PrimitiveOp::kDecrement:
      return "decrement " + program.fields[primitive.field].name;
    case PrimitiveOp::kCount:
      return "count " + program.tables[primitive.table].name + '[' +
             textOf(program, primitive.source) + ']';
    case PrimitiveOp::kDigest:
      return "digest " + program.learns[primitive.learn].name;
  }
  return {};
}

std::string textOf(const Outcome& outcome) {
  switch (outcome.kind) {
    case Outcome::Kind::kForwarded:
      if (outcome.copies > 1) return "forwarded as " + std::to_string(outcome.copies) + " packets";
      return "forwarded to port " + std::to_string(outcome.port);
    case Outcome::Kind::kFlooded:
      return "flooded";
    case Outcome::Kind::kDropped:
      break;
  }
  const bool malformed = outcome.reason == DropReason::kMalformed;
  return std::string("dropped: ") +
         (malformed ? reasonOf(outcome.parse) : reasonOf(outcome.reason));
}

std::string Trace::text() const {
  std::string all = program + ", from port " + std::to_string(ingress_port);
  for (const Step& step : steps) all += "\n  " + textOf(step) + textOf(step, step.source);
  for (const Leaving& packet : leaving) {
    all += "\n  port " + std::to_string(packet.port) + ": " + hex(packet.bytes);
  }
  return all + "\n  " + textOf(outcome);
}

std::string Trace::json() const {
  nlohmann::json all = {{"program", program},
                        {"ingress_port", ingress_port},
                        {"steps", nlohmann::json::array()},
                        {"outcome", textOf(outcome)}};
  for (const Step& step : steps) all["steps"].push_back(jsonOf(step));
  if (outcome.kind == Outcome::Kind::kForwarded) all["egress_port"] = outcome.port;
  for (const Leaving& packet : leaving) {
    all["packets"].push_back({{"port", packet.port}, {"bytes", hex(packet.bytes)}});
  }
  return all.dump();
}

}  // namespace jxmodel
