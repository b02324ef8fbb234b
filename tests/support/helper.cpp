#include "support/helper.h"

#include <cstdio>
#include <map>

namespace jextest {
namespace {

std::map<std::string, HelperFunction>& helpers() {
  static std::map<std::string, HelperFunction> all;
  return all;
}

}  // namespace

HelperRegistration::HelperRegistration(const char* name, HelperFunction function) {
  helpers()[name] = function;
}

bool runHelper(int argc, char** argv, int* status) {
  if (argc < 3 || std::string(argv[1]) != "--helper") return false;
  const auto found = helpers().find(argv[2]);
  if (found == helpers().end()) {
    std::fprintf(stderr, "no helper %s\n", argv[2]);
    *status = 2;
    return true;
  }
  *status = found->second(Arguments(argv + 3, argv + argc));
  return true;
}

}  // namespace jextest
