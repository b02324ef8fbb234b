// A program that defines names of the library itself.
#include <gtest/gtest.h>

#include "JexHybridSlice/JexPartnerLib.h"

// The program's variable takes the place of the library's.
uint64_t requestedTime = 0;

namespace {

int calls = 0;

}  // namespace

// The program's own; the library must not call it.
extern "C" __attribute__((visibility("default"))) void sendBarrier(uint32_t, uint64_t, int) {
  ++calls;
}

namespace jextest {
namespace {

TEST(OwnNames, TheProgramCallsItsOwn) {
  sendBarrier(0, 1, 2);
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace jextest
