// Commands of packet tests and set-up files as requests to the control service: names are looked up
// in the description of a program, values become bytes.
//
// A table or an action (of its table), a register, a meter, a counter table, a value set or an
// action profile is named in full, or else by what only one name ends with. A key is named in full
// or by what follows a dot of its name; "h$3.f" is "h[3].f", and "h.valid" a header's validity.
//
// Keys: exact N; lpm V/LEN, 0x0a01**** (a prefix of the digits before the stars), 0x0a01 (a prefix
// of the digits that are written); ternary 0x**25, 0b1**0 (stars, and digits that are not written,
// are any), decimal (all of it), V/LEN, V&&&M; range LO->HI, N; optional N; * is anything but an
// exact value. Left out, an exact field is 0 and any other one matches anything.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "stf_commands.h"
#include "switch.pb.h"

namespace stf {

/// What changes a device; refers to its program by names of this description.
class Names {
 public:
  explicit Names(const jx::control::v1::ProgramDescription& program) : program_(program) {}

  /// The request for a command that sets something up; nodes are taken as they are numbered. Throws
  /// Error, also for a command that sets nothing up.
  jx::control::v1::ApplyRequest request(const Command& command) const;

  /// Full names. Throw Error.
  std::string counter(const std::string& name) const;
  const jx::control::v1::ProgramDescription::Register& reg(const std::string& name) const;
  const jx::control::v1::ProgramDescription::Meter& meter(const std::string& name) const;

 private:
  using Program = jx::control::v1::ProgramDescription;
  using Request = jx::control::v1::ApplyRequest;

  const Program::Table& table(const std::string& name) const;
  const Program::Table& memberTable(const std::string& name) const;
  std::string groupTable(const std::string& name) const;
  void fillEntry(const Add& command, Request::AddEntry* out) const;
  void fillCall(const Program::Table& table, const Call& call, Request::Result* out) const;
  void fill(const ChangeValueSet& command, Request::ChangeValueSet* out) const;

  const Program& program_;
};

/// A value of `width` bits in network byte order. Throws Error.
std::string valueBytes(const std::string& text, uint32_t width, const std::string& what);

/// The rates of a cell of a meter, as commands write them.
std::string ratesText(const jx::control::v1::ReadCellsReply::Cell& cell, bool counts_bytes);

/// A value as people write it: decimal up to 64 bits, else 0x.
std::string valueText(const std::string& bytes);

}  // namespace stf
