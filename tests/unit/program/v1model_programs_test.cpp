// Programs as the compiler writes them: all of tests/p4/programs load.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "model/program/v1model/v1model.h"

namespace jxmodel {
namespace {

std::string readWhole(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::filesystem::path> compiledPrograms() {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(JEX_P4_PROGRAMS_DIR)) {
    if (entry.path().extension() == ".json") paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

TEST(V1modelProgramsTest, EachProgramLoads) {
  const auto paths = compiledPrograms();
  EXPECT_EQ(paths.size(), 23u);
  for (const auto& path : paths) {
    UnpackedProgram unpacked;
    LoadError error;
    EXPECT_TRUE(programFromV1model(readWhole(path), path.filename(), &unpacked, &error))
        << error.text();
    EXPECT_EQ(unpacked.program.name, path.stem());
    EXPECT_EQ(unpacked.entries.size(), unpacked.program.tables.size());
  }
}

}  // namespace
}  // namespace jxmodel
