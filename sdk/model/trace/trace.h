// The way of one packet through the control flow, for people: tables with what was found in them,
// branches, and the outcome.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/program/program.h"
#include "model/trace/outcome.h"

namespace jxmodel {

struct Trace {
  /// Where a step stands in a program's source; without a file where that is not known.
  struct Source {
    std::string file;
    uint32_t line = 0;
    std::string fragment;
  };
  struct Parameter {
    std::string name;
    std::vector<uint8_t> value;  // network byte order
  };
  struct Step {
    enum class Kind : uint8_t { kTable, kBranch, kStep };
    Kind kind = Kind::kTable;
    /// Of a table its name, of a branch its condition, of a step of the control flow what it does.
    std::string what;
    bool taken = false;  // kTable: hit; kBranch: the condition holds
    // kTable. Handles are 0 where there is none.
    uint32_t entry_handle = 0;  // of the entry hit, or of the default entry that was set
    uint32_t member_handle = 0;
    uint32_t group_handle = 0;
    std::string action;  // empty: none was run
    std::vector<Parameter> parameters;
    Source source;
  };
  /// A packet that would leave a machine.
  struct Leaving {
    uint32_t port = 0;
    std::vector<uint8_t> bytes;
  };

  std::string program;
  uint32_t ingress_port = 0;
  std::vector<Step> steps;
  std::vector<Leaving> leaving;  // of machines
  Outcome outcome;

  /// Several lines for people, without the end of the last.
  std::string text() const;
  /// One object, on one line.
  std::string json() const;
};

/// "ipv4.ttl <= 1", "ipv4 is valid".
std::string textOf(const Program& program, const Branch& branch);
/// "drop", "count port_counters[meta.ingress_port]".
std::string textOf(const Program& program, const Primitive& primitive);
/// The outcome on one line: "forwarded to port 3".
std::string textOf(const Outcome& outcome);

}  // namespace jxmodel
