// The control half that P4Info describes, and what it says beside it that a join needs.
#pragma once

#include <string>
#include <vector>

#include "model/program/p4info/document.h"
#include "model/program/program.h"

namespace jxmodel::p4info {

/// One field of a digest, flat. Width 0: P4Info does not say it (enumerations, errors).
struct DigestField {
  std::string name;
  uint32_t width = 0;  // bits
};
/// What the type of a digest consists of; fields of tuples are named f0, f1, ...
std::vector<DigestField> digestFields(const Document& document, int digest);

struct ControlView {
  struct TableFacts {
    std::string place;             // for errors
    bool initial_entries = false;  // it has some, which stand in the program only
    std::vector<bool> translated;  // as Table::key: its width is the control plane's own
  };

  /// Laid out as a program: tables in P4Info's order, then the tables of action profiles, then
  /// selectors, counters and direct counters.
  Program program;
  std::vector<TableFacts> facts;                     // as Program::tables
  std::vector<std::vector<bool>> translated_params;  // as Program::actions
  std::vector<std::string> action_places;            // likewise, for errors
  std::vector<std::string> learn_places;             // as Program::learns
};

ControlView controlView(const Document& document);

/// Gives the usual width to digest fields whose width P4Info does not say.
void assumeWidths(Program* program);

}  // namespace jxmodel::p4info
