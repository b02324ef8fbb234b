// Loading a program in any of its forms, told apart by content.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/program/program.h"

namespace jxmodel {

/// Loads what `spec` names:
///   FILE           a description of our own, the compiler's JSON, or P4Info alone
///   JSON,P4INFO    the compiler's JSON with its P4Info
/// P4Info beside the compiler's x.json is taken where it is there: x.p4info.txtpb, x.p4info.txt or
/// x.p4info. Null and *error filled if something is wrong. *notices, where given, gets a line for
/// each construct that does less than its author may expect.
std::shared_ptr<const Program> loadProgram(const std::string& spec, LoadError* error,
                                           std::vector<std::string>* notices = nullptr);

}  // namespace jxmodel
