// Calculations, the checksums that use them, and the order in which headers leave.
#include "model/program/v1model/expressions.h"
#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

struct AlgorithmRow {
  const char* name;
  HashAlgorithm algorithm;
  bool fixed;  // stands for an algorithm whose parameters an operator may expect to set
};
constexpr AlgorithmRow kAlgorithms[] = {
    {"csum16", HashAlgorithm::kCsum16, false},     {"xor16", HashAlgorithm::kXor16, false},
    {"crc16", HashAlgorithm::kCrc16, false},       {"crc32", HashAlgorithm::kCrc32, false},
    {"identity", HashAlgorithm::kIdentity, false}, {"random", HashAlgorithm::kRandom, false},
    {"crc16_custom", HashAlgorithm::kCrc16, true}, {"crc32_custom", HashAlgorithm::kCrc32, true},
};

ConstantInput readConstantInput(const Node& node) {
  ConstantInput input;
  input.width = node.at("bitwidth").number(1, kMaxHeaderBits);
  const Node value = node.at("value");
  input.value = readHex(value);
  bytesOfWidth(input.value, input.width, value);  // fails if it does not fit
  return input;
}

bool readGiven(const Node& node, const char* member) {
  const auto given = node.findValue(member);
  return !given || given->boolean();
}

Checksum readChecksum(const Node& node, const std::string& name, Draft* draft) {
  Checksum checksum;
  checksum.name = name;
  const Node type = node.at("type");
  if (type.string() != "generic") type.fail("type " + shown(type.string()) + " is not known");
  const Node target = node.at("target");
  checksum.target = resolveValueField(target, *draft);
  const MachineField& field = draft->machine.fields[checksum.target];
  if (field.varbit) target.fail("field " + nameOfField(field, draft->machine) + " is a varbit");
  checksum.calculation = draft->symbols.calculations.names.resolve(node.at("calculation"));
  checksum.verify = readGiven(node, "verify");
  checksum.update = readGiven(node, "update");
  if (const auto condition = node.findValue("if_cond")) {
    checksum.condition = readCondition(*condition, {}, draft);
  }
  return checksum;
}

std::string fixedParameters(const std::string& construct, const std::string& name) {
  return construct + ": " + name + " has the parameters of the plain algorithm, which are fixed";
}

}  // namespace

HashAlgorithm readAlgorithm(const Node& node, const std::string& construct, Draft* draft) {
  const std::string& name = node.string();
  for (const AlgorithmRow& row : kAlgorithms) {
    if (name != row.name) continue;
    if (row.fixed) {
      draft->notices.push_back(fixedParameters(construct, name));
    }
    return row.algorithm;
  }
  node.fail("algorithm " + shown(name) + " is not available");
}

void readInputs(const Node& list, const Draft& draft, Calculation* calculation) {
  for (const Node& node : itemsOf(list)) {
    const std::string type = typeOf(node);
    if (type == "field") {
      calculation->inputs.push_back(FieldInput{resolveValueField(node.at("value"), draft)});
    } else if (type == "hexstr") {
      calculation->inputs.push_back(readConstantInput(node));
    } else if (type == "header") {
      calculation->inputs.push_back(
          HeaderInput{draft.symbols.headers.names.resolve(node.at("value"))});
    } else if (type == "payload") {
      calculation->inputs.push_back(PayloadInput{});
    } else {
      node.fail("operand type " + shown(type) + " is not known here");
    }
  }
}

void readCalculations(const Node& root, Draft* draft) {
  for (const Node& node : itemsOf(root, "calculations")) {
    Calculation calculation;
    calculation.name = draft->symbols.calculations.declare(node);
    const std::string construct = "calculation " + shown(calculation.name);
    within(construct, [&] {
      calculation.algorithm = readAlgorithm(node.at("algo"), construct, draft);
      readInputs(node.at("input"), *draft, &calculation);
    });
    draft->machine.calculations.push_back(std::move(calculation));
  }
}

void readChecksums(const Node& root, Draft* draft) {
  Index index("checksum");
  for (const Node& node : itemsOf(root, "checksums")) {
    const std::string name = index.declare(node);
    draft->machine.checksums.push_back(
        within("checksum " + shown(name), [&] { return readChecksum(node, name, draft); }));
  }
}

void readDeparser(const Node& root, Draft* draft) {
  const Node deparser = root.at("deparsers").items(1, 1).front();
  const auto primitives = deparser.findValue("primitives");
  if (primitives && !itemsOf(*primitives).empty()) {
    primitives->fail("architecture is not v1model: the deparser has primitives");
  }
  for (const Node& node : itemsOf(deparser.at("order"))) {
    const uint32_t header = draft->symbols.headers.names.resolve(node);
    if (draft->machine.headers[header].metadata) {
      node.fail("header " + shown(node.string()) + " is metadata, which does not leave");
    }
    draft->machine.deparser.push_back(header);
  }
}

}  // namespace jxmodel::v1model
