#include "wire/notify_programs.h"

#include <algorithm>
#include <fstream>

#include "support/private_world.h"

namespace jextest {
namespace {

std::string written(const std::string& name, const std::string& text) {
  const std::string file = runDirectory() + "/" + name + ".json";
  std::ofstream(file) << text;
  return file;
}

}  // namespace

std::string bitsProgram() {
  return written("bits", R"({"name": "bits", "id": 40,
    "fields": [{"name": "meta.a", "width": 1}, {"name": "meta.b", "width": 1},
               {"name": "meta.c", "width": 1}, {"name": "meta.d", "width": 13},
               {"name": "meta.e", "width": 19}],
    "actions": [{"name": "nop"}],
    "tables": [{"name": "t1", "kind": "match", "size": 1, "actions": ["nop"],
                "key": [{"field": "meta.e", "match": "exact"}]}],
    "learn": [{"name": "three_bits", "fields": ["meta.a", "meta.b", "meta.c"]},
              {"name": "two_and_three", "fields": ["meta.d", "meta.e"]}],
    "control": []})");
}

std::string manyProgram(uint32_t digests, uint32_t tables) {
  std::string text = R"({"name": "many", "id": 41,
    "fields": [{"name": "meta.number", "width": 64}],
    "actions": [{"name": "nop"}], "tables": [)";
  for (uint32_t n = 1; n <= std::max(tables, 1u); ++n) {  // no program is without tables
    text += (n == 1 ? "" : ",\n") + std::string(R"({"name": "t)") + std::to_string(n) +
            R"(", "kind": "match", "size": 1, "actions": ["nop"], "idle_timeout": true,
             "key": [{"field": "meta.number", "match": "exact"}]})";
  }
  text += R"(], "learn": [)";
  for (uint32_t n = 1; n <= digests; ++n) {
    text += (n == 1 ? "" : ",\n") + std::string(R"({"name": "d)") + std::to_string(n) +
            R"(", "fields": ["meta.number"]})";
  }
  return written("many", text + R"(], "control": []})");
}

}  // namespace jextest
