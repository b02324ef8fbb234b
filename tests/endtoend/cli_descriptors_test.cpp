// Programs that are started with closed standard descriptors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::Words;
using testing::StartsWith;

/// Runs `program` with the descriptors closed that `redirections`, in the shell's words, name.
Child withClosed(const std::string& redirections, const std::string& program,
                 const Words& arguments) {
  Words words{"-c", "exec \"$@\" " + redirections, "sh", program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return Child("/bin/sh", words);
}

std::string fileBehind(const Child& process, int fd) {
  std::error_code none;
  return std::filesystem::read_symlink(
      "/proc/" + std::to_string(process.pid()) + "/fd/" + std::to_string(fd), none);
}

TEST(ClosedStandardDescriptors, OfTheAgentAreOpenedOnTheNullDevice) {
  const Child sut =
      withClosed("<&- >&- 2>&-", JEX_SLICE_AGENT, {"--program", jextest::programFile("l2_switch")});
  ASSERT_TRUE(
      jextest::waitUntil([] { return jextest::switchctl({"health"}).output == Words{"SERVING"}; }));
  for (const int fd : {0, 1, 2}) EXPECT_EQ(fileBehind(sut, fd), "/dev/null") << fd;
}

TEST(ClosedStandardDescriptors, OfSwitchctlAreOpenedOnTheNullDevice) {
  const auto agent = jextest::startSwitch("l2_switch");
  Child sut = withClosed("<&- 2>&-", JEX_SWITCHCTL, {"watch"});
  ASSERT_THAT(sut.readLine(), StartsWith("watching"));
  for (const int fd : {0, 2}) EXPECT_EQ(fileBehind(sut, fd), "/dev/null") << fd;
}

TEST(ClosedStandardDescriptors, OfSliceCountersAreOpenedOnTheNullDevice) {
  Child sut = withClosed("<&- 2>&-", JEX_SLICE_COUNTERS, {"--prometheus", "127.0.0.1:0"});
  ASSERT_THAT(sut.readLine(), StartsWith("slice-counters: serving"));
  for (const int fd : {0, 2}) EXPECT_EQ(fileBehind(sut, fd), "/dev/null") << fd;
}

}  // namespace
