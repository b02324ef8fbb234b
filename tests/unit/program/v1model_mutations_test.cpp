// Whatever is in a file, it is loaded whole or refused in one line.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "model/program/v1model/v1model.h"
#include "v1model_base.h"
#include "v1model_files.h"

namespace jxmodel {
namespace {

using Tree = nlohmann::json;

constexpr uint32_t kSeed = 20'240'611;
constexpr size_t kMutationsPerFile = 16;

std::vector<Tree> otherValues() {
  return {nullptr,
          true,
          0,
          1,
          -1,
          4294967295u,
          1.5,
          "",
          "0x",
          "0xffffffffffffffffff",
          "-0x1",
          "scalars",
          Tree::array(),
          Tree::object(),
          Tree::array({0, 0}),
          {{"op", "+"}},
          {{"type", "expression"}, {"value", nullptr}}};
}

// All values below the root, each once.
std::vector<Tree::json_pointer> placesOf(const Tree& document) {
  const Tree flat = document.flatten();
  std::set<std::string> texts;
  for (const auto& item : flat.items()) {
    Tree::json_pointer place(item.key());
    while (!place.empty() && texts.insert(place.to_string()).second) place = place.parent_pointer();
  }
  std::vector<Tree::json_pointer> places;
  for (const std::string& text : texts) places.emplace_back(text);
  return places;
}

// Loads it, and checks that the answer is one of the two that there are.
void expectAnswer(const std::string& text) {
  UnpackedProgram unpacked;
  LoadError error;
  if (programFromV1model(text, "mutant.json", &unpacked, &error)) {
    EXPECT_TRUE(error.reason.empty());
    EXPECT_EQ(unpacked.entries.size(), unpacked.program.tables.size());
    EXPECT_NE(unpacked.program.machine, nullptr);
    return;
  }
  EXPECT_EQ(unpacked.program.machine, nullptr);
  EXPECT_FALSE(error.reason.empty());
  EXPECT_EQ(error.text().find('\n'), std::string::npos);
}

void expectAnswerWithout(Tree document, const Tree::json_pointer& place) {
  Tree& parent = document.at(place.parent_pointer());
  if (parent.is_array()) {
    parent.erase(std::stoul(place.back()));
  } else {
    parent.erase(place.back());
  }
  expectAnswer(document.dump());
}

void expectAnswerInstead(Tree document, const Tree::json_pointer& place, const Tree& value) {
  document.at(place) = value;
  expectAnswer(document.dump());
}

TEST(V1modelMutations, EveryMemberOfASmallProgramMayBeMissing) {
  const Tree document = Tree::parse(kV1modelBase);
  for (const auto& place : placesOf(document)) expectAnswerWithout(document, place);
}

TEST(V1modelMutations, EveryMemberOfASmallProgramMayBeOfAnotherType) {
  const Tree document = Tree::parse(kV1modelBase);
  const std::vector<Tree> values = otherValues();
  size_t next = 0;
  for (const auto& place : placesOf(document)) {
    expectAnswerInstead(document, place, values[next++ % values.size()]);
  }
}

TEST(V1modelMutations, MembersOfEachProgramMayBeMissingOrOfAnotherType) {
  std::mt19937 random(kSeed);
  const std::vector<Tree> values = otherValues();
  for (const auto& path : compiledPrograms()) {
    const Tree document = Tree::parse(readWhole(path));
    const auto places = placesOf(document);
    for (size_t i = 0; i < kMutationsPerFile; ++i) {
      const auto& place = places[random() % places.size()];
      if (i % 2 == 0) {
        expectAnswerWithout(document, place);
      } else {
        expectAnswerInstead(document, place, values[random() % values.size()]);
      }
    }
  }
}

TEST(V1modelMutations, FilesMayEndAnywhere) {
  const std::string text = kV1modelBase;
  for (size_t size = 0; size < text.size(); size += 37) expectAnswer(text.substr(0, size));
}

}  // namespace
}  // namespace jxmodel
