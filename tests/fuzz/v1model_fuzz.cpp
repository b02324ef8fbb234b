// Loads any bytes as a compiled program. The answer is a whole program or a reason on one line;
// inputs that are JSON are changed as JSON, so that the fuzzer gets past the parser.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "model/program/v1model/v1model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned int seed);

namespace jxmodel {
namespace {

using Tree = nlohmann::json;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "v1model_fuzz: does not hold: %s\n", what);
  std::abort();
}

// Follows random members down; ends at a random depth.
Tree* pick(Tree* root, unsigned int* seed) {
  Tree* value = root;
  while (value->is_structured() && !value->empty() && rand_r(seed) % 16 != 0) {
    auto child = value->begin();
    std::advance(child, rand_r(seed) % value->size());
    value = &*child;
  }
  return value;
}

void change(Tree* document, unsigned int* seed) {
  Tree* const value = pick(document, seed);
  switch (rand_r(seed) % 4) {
    case 0:
      *value = Tree(*pick(document, seed));
      return;
    case 1:
      if (value->is_structured() && !value->empty()) value->erase(value->begin());
      return;
    case 2:
      *value = rand_r(seed) % 2 == 0 ? Tree("0x" + std::to_string(rand_r(seed)))
                                     : Tree(rand_r(seed) % 8);
      return;
    default:
      if (value->is_array() && !value->empty()) value->push_back(Tree(*pick(value, seed)));
  }
}

}  // namespace
}  // namespace jxmodel

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned int seed) {
  using jxmodel::Tree;
  Tree document = Tree::parse(data, data + size, nullptr, false);
  if (document.is_discarded() || rand_r(&seed) % 8 == 0) {
    return LLVMFuzzerMutate(data, size, max_size);
  }
  jxmodel::change(&document, &seed);
  const std::string text =
      document.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
  if (text.size() > max_size) return LLVMFuzzerMutate(data, size, max_size);
  text.copy(reinterpret_cast<char*>(data), text.size());
  return text.size();
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace jxmodel;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  UnpackedProgram unpacked;
  LoadError error;
  if (programFromV1model(text, "fuzz.json", &unpacked, &error)) {
    require(unpacked.program.machine != nullptr, "a loaded program has a machine");
    require(unpacked.entries.size() == unpacked.program.tables.size(), "each table has entries");
  } else {
    require(!error.reason.empty(), "a refusal has a reason");
    require(error.text().find('\n') == std::string::npos, "a refusal is one line");
    require(unpacked.program.machine == nullptr, "nothing is half loaded");
  }
  return 0;
}
