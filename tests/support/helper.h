// Helper processes: the test binary starts itself anew with "--helper NAME ARGUMENTS...", and the
// function registered under NAME is the process. So a process that a test stops, kills or watches
// is always a fresh one, without threads or sockets of the test.
#pragma once

#include <string>
#include <vector>

namespace jextest {

using Arguments = std::vector<std::string>;
using HelperFunction = int (*)(const Arguments& arguments);

struct HelperRegistration {
  HelperRegistration(const char* name, HelperFunction function);
};

/// Runs the helper that the command line asks for: true, and its result in *status. False if it
/// asks for none.
bool runHelper(int argc, char** argv, int* status);

}  // namespace jextest

/// Defines the helper process `name`: a function body that sees `arguments` and returns the
/// process's status.
#define JEX_HELPER(name)                                                                 \
  static int helper_##name(const ::jextest::Arguments& arguments);                       \
  static const ::jextest::HelperRegistration registration_##name(#name, &helper_##name); \
  static int helper_##name([[maybe_unused]] const ::jextest::Arguments& arguments)
