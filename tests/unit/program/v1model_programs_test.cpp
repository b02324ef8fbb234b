// Programs as the compiler writes them: all of tests/p4/programs load.
#include <gtest/gtest.h>

#include "model/program/v1model/v1model.h"
#include "v1model_files.h"

namespace jxmodel {
namespace {

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
