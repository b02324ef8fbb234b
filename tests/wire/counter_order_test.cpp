// The order in which counters start, are written and end: what one side sees of a block while the
// other side is in the midst of it.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "JexPartnerLib.h"
#include "JexPartnerLibCounter.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibSocket.h"
#include "support/switch_device.h"
#include "wire/counter_frames.h"
#include "wire/counter_segment.h"
#include "wire/living_blocks.h"
#include "wire/nanomsg_calls.h"

namespace jextest {
namespace {

constexpr jx_dev_id_t kPhysical = 0;
constexpr jx_dev_id_t kVirtual = 1;
const std::string kBlockName = std::to_string(kPairs);

/// The library keeps its mapping of the segment for the life of the process. A test that makes a
/// new segment takes the old mapping away.
void forgetSegment() {
  delete PartnerLib::CounterShm::segment;
  PartnerLib::CounterShm::segment = nullptr;
}

/// Runs when a value is about to be written into a block.
std::function<void()> before_value;

TEST(CounterOrder, TheTimeOfASyncIsWrittenBehindItsValues) {
  const SwitchDevice device(DeviceKind::kPhysical, kPhysical, {"limits"});
  forgetSegment();
  CounterSegment segment = CounterSegment::create();
  segment.makeBlock(kBlockName, kPairCount);
  const uint32_t session = device.view().session().sessHandleGet();
  Bytes message = counterConfig(77, kPairs, 1);
  PartnerLib::counterConfigDeserialize(kPhysical, session, message.data() + 16, message.size() - 16,
                                       -1, 77);
  int values = 0;
  before_value = [&] {
    ++values;
    EXPECT_EQ(u64At(segment.block(kBlockName), 4), 0u);
  };
  PartnerLib::processCounterRead(PartnerLib::countersCallbackMap.at(kPairs * 10));
  before_value = nullptr;
  EXPECT_EQ(values, 2 * static_cast<int>(kPairCount));
  EXPECT_NE(u64At(segment.block(kBlockName), 4), 0u);
  message = counterConfig(77, kPairs, 0);
  PartnerLib::counterConfigDeserialize(kPhysical, session, message.data() + 16, message.size() - 16,
                                       -1, 77);
}

TEST(CounterOrder, NothingStaysOfARecordThatHasEnded) {
  const SwitchDevice device(DeviceKind::kPhysical, kPhysical, {"limits"});
  forgetSegment();
  CounterSegment segment = CounterSegment::create();
  segment.makeBlock(kBlockName, kPairCount);
  const uint32_t session = device.view().session().sessHandleGet();
  long living = 0;
  for (int round = 0; round < 3; ++round) {
    living = livingBlocks();
    for (const uint8_t enable : Bytes{1, 0}) {
      const Bytes message = counterConfig(77, kPairs, enable);
      PartnerLib::counterConfigDeserialize(kPhysical, session, message.data() + 16,
                                           message.size() - 16, -1, 77);
    }
  }
  EXPECT_EQ(livingBlocks(), living);
}

void startAndEnd(const SwitchDevice& device) {
  char program[256] = "limits";
  void* handle = nullptr;
  ASSERT_TRUE(PartnerCounterInit(program, "pairs", device.view().target(),
                                 device.view().session().cHandle(), &handle));
  PartnerCounterFree(handle);
}

// The agent looks for the block when it has the request, which may be at once.
TEST(CounterOrder, ABlockIsThereFromBeforeTheStartUntilTheEndHasLeft) {
  forgetSegment();
  const SwitchDevice device(DeviceKind::kVirtual, kVirtual, {"limits"});
  PartnerLib::PartnerSocket socket(1);
  std::vector<Bytes> seen;  // the block, at each request
  NanomsgCalls calls;
  calls.poll = [](nn_pollfd* fds, int, int) {
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  calls.send = [&](int, const void*, size_t size, int) {
    seen.push_back(CounterSegment::open().block(kBlockName));
    return static_cast<int>(size);
  };
  const NanomsgInFront front(&calls);
  PartnerLib::pSocket = &socket;
  startAndEnd(device);
  PartnerLib::pSocket = nullptr;
  const Bytes zeros(12 + 16 * kPairCount);
  EXPECT_EQ(seen, (std::vector<Bytes>{zeros, zeros}));
  EXPECT_EQ(CounterSegment::open().block(kBlockName), Bytes());
}

TEST(CounterOrder, NothingStaysOfCountersThatHaveEnded) {
  forgetSegment();
  const SwitchDevice device(DeviceKind::kVirtual, kVirtual, {"limits"});
  PartnerLib::PartnerSocket socket(1);
  NanomsgCalls calls;
  calls.poll = [](nn_pollfd* fds, int, int) {
    fds[0].revents = NN_POLLOUT;
    return 1;
  };
  calls.send = [](int, const void*, size_t size, int) { return static_cast<int>(size); };
  const NanomsgInFront front(&calls);
  PartnerLib::pSocket = &socket;
  long living = 0;
  for (int round = 0; round < 3; ++round) {  // the first makes the segment
    living = livingBlocks();
    startAndEnd(device);
  }
  EXPECT_EQ(livingBlocks(), living);
  PartnerLib::pSocket = nullptr;
}

}  // namespace
}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
jx_status_t __real_jx_rt_data_field_get_value(const jx_rt_table_data_hdl* data, uint32_t field_id,
                                              uint64_t* value);
__attribute__((visibility("default"))) jx_status_t __wrap_jx_rt_data_field_get_value(
    const jx_rt_table_data_hdl* data, uint32_t field_id, uint64_t* value) {
  if (jextest::before_value) jextest::before_value();
  return __real_jx_rt_data_field_get_value(data, field_id, value);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
