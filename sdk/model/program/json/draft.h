// A program in the making, and the readers of its parts. Each lies in a source of its own; all
// report by LoadFailure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "model/program/json/reader.h"
#include "model/program/layout.h"
#include "model/program/program.h"

namespace jxmodel {

/// The names of one kind of thing, and which item of its list each one is.
class Names {
 public:
  /// `what` stands in reasons: "table".
  explicit Names(const char* what) : what_(what) {}

  /// Reads the "name" of the next item; a name that is taken is a failure.
  std::string declare(const Node& item) {
    const Node node = item.at("name");
    const std::string& name = node.name();
    if (!indices_.emplace(name, static_cast<uint32_t>(indices_.size())).second) {
      node.fail(std::string(what_) + " " + inQuotes(name) + " is already declared");
    }
    return name;
  }

  /// Index of the item that `reference`, a string, names.
  uint32_t resolve(const Node& reference) const {
    const auto found = indices_.find(reference.string());
    if (found == indices_.end()) {
      reference.fail("unknown " + std::string(what_) + " " + inQuotes(reference.string()));
    }
    return found->second;
  }

 private:
  const char* what_;
  std::unordered_map<std::string, uint32_t> indices_;
};

struct Draft {
  Program program;
  Names fields{"field"};
  Names actions{"action"};
  Names tables{"table"};
  Names learns{"learn object"};
};

// Actions come in two steps, because tables name actions and the steps of actions name tables.
void declareActions(const Node& list, Draft* draft);
void readActionBodies(const Node& list, Draft* draft);

/// Needs the packet fields and the declared actions.
void readTables(const Node& list, Draft* draft);

/// A step of an action, or of the control flow where `action` is null. Needs all of the draft but
/// bodies and control.
Primitive readPrimitive(const Node& step, const Draft& draft, const Action* action);

/// What a step or a comparison works on, of at most `width` bits; a constant gets that many.
Operand readOperand(const Node& node, uint32_t width, const Draft& draft, const Action* action);

void readControl(const Node& list, Draft* draft);

}  // namespace jxmodel
