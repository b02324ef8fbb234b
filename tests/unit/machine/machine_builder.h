// Machines made by hand, and a device that runs packets through one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/device/device.h"
#include "model/machine/settings.h"
#include "model/pipeline/pipeline.h"
#include "model/program/program.h"

namespace jxmachinetest {

using jxmodel::Expression;
using jxmodel::ExprOp;
using Bytes = std::vector<uint8_t>;

/// "0a0b" and "0a 0b" are the same bytes.
Bytes bytes(const std::string& hex);
std::string hex(const Bytes& bytes);

/// A machine with the standard metadata and nothing else; all indices are those of the machine.
class Builder {
 public:
  Builder();

  /// Fields as widths in bits. Returns the header.
  uint32_t header(const std::string& name, const std::vector<uint32_t>& widths);
  /// A header whose last field is a varbit of at most `max_bits`.
  uint32_t varbitHeader(const std::string& name, const std::vector<uint32_t>& widths,
                        uint32_t max_bits);
  uint32_t metadata(const std::string& name, const std::vector<uint32_t>& widths);
  /// Headers "name[0]", "name[1]" ... and their stack.
  uint32_t stack(const std::string& name, uint32_t size, const std::vector<uint32_t>& widths);
  uint32_t unionOf(const std::string& name, const std::vector<uint32_t>& headers);
  /// Field `number` of a header.
  uint32_t field(uint32_t header, uint32_t number) const;

  // Expressions.
  Expression constant(uint64_t value);
  Expression constant(bool negative, const Bytes& magnitude);
  static Expression of(uint32_t field) { return {{ExprOp::kField, field, 0}}; }
  static Expression code(ExprOp op, uint32_t a = 0, uint32_t b = 0) { return {{op, a, b}}; }
  static Expression unary(ExprOp op, Expression value, uint32_t a = 0, uint32_t b = 0);
  static Expression binary(ExprOp op, Expression left, const Expression& right);

  // Steps.
  jxmodel::MachineStep set(uint32_t field, Expression value) const {
    return jxmodel::AssignStep{jxmodel::FieldTarget{field}, std::move(value)};
  }
  jxmodel::MachineStep set(uint32_t field, uint64_t value) { return set(field, constant(value)); }

  /// Adds an action and a node that runs it at the end of a pipeline.
  void ingress(std::vector<jxmodel::MachineStep> steps) { append(&ingress_, std::move(steps)); }
  void egress(std::vector<jxmodel::MachineStep> steps) { append(&egress_, std::move(steps)); }
  /// Adds a parser state whose transitions are still to be made. The first one added is the first.
  uint32_t state(std::vector<jxmodel::ParserOp> ops);
  void goOn(uint32_t state, uint32_t next);

  jxmodel::Machine machine;
  jxmodel::Program program;
  // Of the standard metadata.
  uint32_t ingress_port, egress_spec, egress_port, instance_type, packet_length, mcast_grp,
      egress_rid, checksum_error, parser_error;

 private:
  friend class Bench;
  uint32_t addHeader(const std::string& name, const std::vector<uint32_t>& widths, bool metadata);
  void append(std::vector<uint32_t>* nodes, std::vector<jxmodel::MachineStep> steps);
  std::vector<uint32_t> ingress_, egress_;  // nodes, each behind the other
};

/// A physical device with the builder's machine.
class Bench {
 public:
  explicit Bench(Builder builder);

  /// Runs a packet that comes in at a port; "2: 0a0b" of each packet that leaves, in order.
  std::vector<std::string> run(const std::string& packet, uint32_t port = 1);
  std::vector<std::string> run(const Bytes& packet, uint32_t port);
  jxmodel::Trace trace(const std::string& packet, uint32_t port = 1);

  jxmodel::MachineSettings& settings() { return *pipeline_->settings(); }
  const jxmodel::Pipeline& pipeline() const { return *pipeline_; }
  jxmodel::Device& device() { return *device_; }
  jxmodel::TableState& table(uint32_t index);
  /// How often something happened, by its name.
  uint64_t happened(const std::string& what) const;
  /// The value of a register of at most 64 bits.
  uint64_t registerValue(uint32_t reg, uint32_t index);

  std::vector<jxmodel::Digest> digests;  // of all packets

 private:
  std::shared_ptr<jxmodel::Device> device_;
  std::unique_ptr<jxmodel::Pipeline> pipeline_;
};

}  // namespace jxmachinetest
