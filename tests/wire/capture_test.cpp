// Bytes of every update that a Partner captures, and every way in which capturing one stops.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>

#include "JexPartnerLibMatchCallback.h"
#include "JexPartnerLibSocket.h"
#include "support/helper.h"
#include "support/processes.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/write_command.h"
#include "wire/recorded_update.h"
#include "wire/scripts.h"

namespace jextest {
namespace {

/// Calls the library's callback for the kind of `update`.
void capture(const Update& update, PartnerLib::PartnerMessage* cookie) {
  if (update.message == 0) {
    PartnerLib::packMatchCallback(update.target, update.table,
                                  static_cast<pipe_mat_update_type>(update.type),
                                  static_cast<pipe_mat_update_params*>(update.params), cookie);
  } else if (update.message == 1) {
    PartnerLib::packAdtCallback(update.target, update.table,
                                static_cast<pipe_adt_update_type>(update.type),
                                static_cast<pipe_adt_update_params*>(update.params), cookie);
  } else {
    PartnerLib::packSelCallback(update.target, update.table,
                                static_cast<pipe_sel_update_type>(update.type),
                                static_cast<pipe_sel_update_params*>(update.params), cookie);
  }
}

/// The cookie of the callbacks, with a socket to the agent's address.
struct Capture {
  Capture() : socket(1), message(&socket) {
    socket.socket_ = nn_socket(AF_SP, NN_PUSH);
    EXPECT_GE(nn_connect(socket.socket_, "ipc:///tmp/Partner0"), 0);
  }
  ~Capture() { nn_close(socket.socket_); }
  PartnerLib::PartnerSocket socket;
  PartnerLib::PartnerMessage message;
};

/// What the sender may leave undefined does not count.
Bytes withoutPid(Bytes message) {
  putU32(message, 4, 0);
  return message;
}

class CapturedUpdate : public testing::TestWithParam<UpdateLayout> {};
INSTANTIATE_TEST_SUITE_P(Every, CapturedUpdate, testing::ValuesIn(updateLayouts()),
                         [](const auto& test) { return std::string(test.param.name); });

// Every word, the table, the device and the pipe carry values that nothing else has.
TEST_P(CapturedUpdate, IsTheMessageByteForByte) {
  const UpdateLayout& layout = GetParam();
  const UpdateScript& script = scriptOf(layout.name);
  RawAgent agent;
  Capture sut;
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  listen(device.view(), [](const Update&) {});
  runWrites(TableWriter(device.view()), script.before);
  Bytes expected;
  uint32_t pointer_word = 0;
  listen(device.view(), [&](const Update& reported) {
    Update update = reported;
    ASSERT_EQ(update.message, layout.message);
    ASSERT_EQ(update.type, layout.type);
    update.target = {0x11121314, 0x21222324u};
    update.table = 0x31323334u;
    for (uint32_t i = 0; i < layout.words; ++i) {
      const bool free = static_cast<int>(i) != layout.pointer && !(layout.elements && i == 4);
      if (free) update.setWord(i, 0xA0B0C000u + i);
    }
    if (layout.pointer >= 0) {
      const auto at = static_cast<size_t>(layout.pointer);
      pointer_word = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(update.pointer(at)));
    }
    expected = update.toMessage(0);
    capture(update, &sut.message);
  });
  runWrites(TableWriter(device.view()), {script.write});

  ASSERT_FALSE(expected.empty()) << "the write reports no update";
  const Bytes found = withoutPid(agent.receive());
  EXPECT_EQ(found, expected);
  // The offsets once more, without the function that writes them for all tests.
  ASSERT_GE(found.size(), 32u);
  EXPECT_EQ(u32At(found, 0), layout.message);
  EXPECT_EQ(u64At(found, 8), found.size());
  EXPECT_EQ(u32At(found, 16), 0x11121314u);
  EXPECT_EQ(u32At(found, 20), 0x21222324u);
  EXPECT_EQ(u32At(found, 24), 0x31323334u);
  EXPECT_EQ(u32At(found, 28), layout.type);
  if (layout.pointer >= 0) {
    EXPECT_EQ(u32At(found, 32 + 4 * static_cast<size_t>(layout.pointer)), pointer_word);
  }
}

TEST(CaptureLengths, AreThoseOfEveryUpdate) {
  struct Row {
    const char* name;
    size_t fixed;
  };
  const Row rows[] = {
      {"MatchAdd", 76},          {"MatchSetDefault", 68},     {"MatchClearDefault", 36},
      {"MatchDelete", 36},       {"MatchModify", 68},         {"MatchMove", 72},
      {"MemberAdd", 40},         {"MemberDelete", 36},        {"MemberModify", 40},
      {"GroupCreate", 56},       {"GroupDestroy", 36},        {"GroupMemberAdd", 52},
      {"GroupMemberDelete", 48}, {"GroupMemberActivate", 48}, {"GroupMemberDeactivate", 48},
      {"FallbackSet", 40},       {"FallbackClear", 32}};
  RawAgent agent;
  Capture sut;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
    listen(device.view(), [](const Update&) {});
    runWrites(TableWriter(device.view()), scriptOf(row.name).before);
    size_t behind = 0;
    listen(device.view(), [&](const Update& update) {
      if (update.data() != nullptr) behind = packed(update.data()).size();
      if (update.layout().elements) behind = 8 * size_t{update.word(4)};
      capture(update, &sut.message);
    });
    runWrites(TableWriter(device.view()), {scriptOf(row.name).write});
    EXPECT_EQ(agent.receive().size(), row.fixed + behind);
  }
}

/// A group create of `count` elements, without a device.
void captureGroup(uint32_t count, const std::vector<pipe_sel_element>& elements,
                  PartnerLib::PartnerMessage* cookie) {
  pipe_sel_update_params params{};
  params.grp_create.grp_hdl = 9;
  params.grp_create.num_elements = count;
  params.grp_create.elements = elements.data();
  PartnerLib::packSelCallback({1, 2}, 3, PIPE_SEL_UPDATE_GROUP_CREATE, &params, cookie);
}

std::vector<pipe_sel_element> someElements(uint32_t count) {
  std::vector<pipe_sel_element> elements;
  for (uint32_t i = 0; i < count; ++i) elements.push_back({1000 + i, i % 2});
  return elements;
}

TEST(CaptureGroupCreate, CarriesNoElementToAsManyAsFit) {
  RawAgent agent;
  Capture sut;
  for (const uint32_t count : {0u, 1u, 249u}) {
    captureGroup(count, someElements(count), &sut.message);
    const Bytes found = agent.receive();
    ASSERT_EQ(found.size(), 56 + 8 * count);
    EXPECT_EQ(u64At(found, 8), found.size());
    EXPECT_EQ(u32At(found, 48), count);
    for (uint32_t i = 0; i < count; ++i) {
      ASSERT_EQ(u32At(found, 56 + 8 * i), 1000 + i);
      ASSERT_EQ(u32At(found, 60 + 8 * i), i % 2);
    }
  }
}

JEX_HELPER(capture_group_create) {
  const auto count = static_cast<uint32_t>(std::stoul(arguments.at(0)));
  Capture sut;
  captureGroup(count, someElements(count > 1000 ? 0 : count), &sut.message);
  return 0;
}

TEST(CaptureGroupCreate, StopsOnOneElementMoreThanFits) {
  RawAgent agent;
  Child child = Child::helper("capture_group_create", {"250"});
  expectStop(child, {"Error: Callback len too long in SEL group create len: 2056",
                     "JexPartnerLibMatchCallback", "PartnerLib::packSelCallback(",
                     "len <= PACK_BUFFER_SIZE"});
  Bytes message;
  EXPECT_FALSE(agent.tryReceive(&message)) << "no partial message is sent";
}

// 8 * 0x20000000 is 2^32: a length kept in 32 bits would look small.
TEST(CaptureGroupCreate, StopsOnACountThatOverflows) {
  Child child = Child::helper("capture_group_create", {"536870912"});
  expectStop(child, {"Error: Callback len too long in SEL group create len: 4294967352",
                     "JexPartnerLibMatchCallback", "PartnerLib::packSelCallback(",
                     "len <= PACK_BUFFER_SIZE"});
}

/// Calls the callback of `message` with update type `type`; no parameter is of use.
JEX_HELPER(capture_type) {
  Capture sut;
  uint32_t words[16] = {};
  const Update update{static_cast<uint32_t>(std::stoul(arguments.at(0))),
                      {1, 2},
                      3,
                      static_cast<uint32_t>(std::stoul(arguments.at(1))),
                      words};
  capture(update, &sut.message);
  return 0;
}

struct UnsupportedType {
  const char* name;
  uint32_t message;
  uint32_t type;
  const char* error;
  const char* function;
};

class Unsupported : public testing::TestWithParam<UnsupportedType> {};
INSTANTIATE_TEST_SUITE_P(
    Types, Unsupported,
    testing::Values(
        UnsupportedType{"Match1", 0, 1, "Error: Unsupported Match Callback on type 1", "Match"},
        UnsupportedType{"Match7", 0, 7, "Error: Unsupported Match Callback on type 7", "Match"},
        UnsupportedType{"Match8", 0, 8, "Error: Unsupported Match Callback on type 8", "Match"},
        UnsupportedType{"Match9", 0, 9, "Error: Unsupported Match Callback on type 9", "Match"},
        UnsupportedType{"Match1000", 0, 1000, "Error: Unsupported Match Callback on type 1000",
                        "Match"},
        UnsupportedType{"Adt3", 1, 3, "Error: Unsupported ADT Callback on type 3", "Adt"},
        UnsupportedType{"Adt1000", 1, 1000, "Error: Unsupported ADT Callback on type 1000", "Adt"},
        UnsupportedType{"Sel8", 2, 8, "Error: Unknown SEL type update_type: 8", "Sel"},
        UnsupportedType{"Sel1000", 2, 1000, "Error: Unknown SEL type update_type: 1000", "Sel"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(Unsupported, StopsThePartner) {
  const UnsupportedType& row = GetParam();
  Child child =
      Child::helper("capture_type", {std::to_string(row.message), std::to_string(row.type)});
  expectStop(child, {row.error, "JexPartnerLibMatchCallback",
                     std::string("PartnerLib::pack") + row.function + "Callback(", "false"});
}

/// Failing SDK calls and lengths of updates with data.
struct DataUpdate {
  const char* name;
  const char* function;
  const char* size_text;
  const char* length_text;
  const char* pack_text;
  std::vector<std::string> fitting;  ///< writes; the last makes a message of exactly 2048 bytes
  std::vector<std::string> over;     ///< the last would make one of 2049
};

const std::vector<DataUpdate>& dataUpdates() {
  static const std::vector<DataUpdate> all = {
      {"MatchAdd",
       "packMatchCallback(",
       "invalid size in plcmt Pack failed match add returns: ",
       "Callback len too long in match add len: ",
       "plcmt Pack failed in match add returns: ",
       {"add exact_direct 1 add_fits"},
       {"add exact_direct 1 add_over"}},
      {"MatchSetDefault",
       "packMatchCallback(",
       "invalid size in plcmt Pack failed match setdefault returns: ",
       "Callback len too long in match setdefault len: ",
       "plcmt Pack failed in match setdefault returns: ",
       {"default exact_direct default_fits"},
       {"default exact_direct default_over"}},
      {"MatchModify",
       "packMatchCallback(",
       "invalid size in plcmt Pack failed match mod returns: ",
       "Callback len too long in match mod len: ",
       "plcmt Pack failed in match mod returns: ",
       {"add exact_direct 1 nop", "modify exact_direct 1 modify_fits"},
       {"add exact_direct 1 nop", "modify exact_direct 1 modify_over"}},
      {"MatchMove",
       "packMatchCallback(",
       "invalid size in plcmt Pack failed match move returns: ",
       "Callback len too long in match move len: ",
       "plcmt Pack failed in match move returns: ",
       {"add ternary_direct 1 nop", "modify ternary_direct 1 move_fits", "move ternary_direct 1 5"},
       {"add ternary_direct 1 nop", "modify ternary_direct 1 move_over",
        "move ternary_direct 1 5"}},
      {"MemberAdd",
       "packAdtCallback(",
       "invalid size in plcmt Pack failed adt add returns: ",
       "Callback len too long in adt add len: ",
       "plcmt Pack failed in adt add returns: ",
       {"member-add members 1 member_fits"},
       {"member-add members 1 member_over"}},
      {"MemberModify",
       "packAdtCallback(",
       "invalid size in plcmt Pack failed adt mod returns: ",
       "Callback len too long in adt mod len: ",
       "plcmt Pack failed in adt mod returns: ",
       {"member-add members 1 nop", "member-modify members 1 member_fits"},
       {"member-add members 1 nop", "member-modify members 1 member_over"}},
      {"GroupMemberAdd",
       "packSelCallback(",
       "invalid size in plcmt Pack failed sel add returns: ",
       "Callback len too long in sel add len: ",
       "plcmt Pack failed in adt add returns: ",
       {"member-add members 1 select_fits", "group-create groups 5", "group-add groups 5 1"},
       {"member-add members 1 select_over", "group-create groups 5", "group-add groups 5 1"}},
      {"FallbackSet",
       "packSelCallback(",
       "invalid size in plcmt Pack failed sel set returns: ",
       "Callback len too long in sel set len: ",
       "plcmt Pack failed in adt set returns: ",
       {"member-add members 1 member_fits", "fallback groups 1"},
       {"member-add members 1 member_over", "fallback groups 1"}},
  };
  return all;
}

/// Makes writes on a device of its own and gives only the last one's update to the library.
JEX_HELPER(capture_last_write) {
  RawAgent agent;  // somebody who takes the message
  Capture sut;
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  listen(device.view(), [](const Update&) {});
  const TableWriter writer(device.view());
  runWrites(writer, Arguments(arguments.begin(), arguments.end() - 1));
  listen(device.view(), [&](const Update& update) { capture(update, &sut.message); });
  runWrites(writer, {arguments.back()});
  const Bytes message = agent.receive();
  std::printf("%zu bytes, length word %llu\n", message.size(),
              static_cast<unsigned long long>(u64At(message, 8)));
  return 0;
}

class CapturedData : public testing::TestWithParam<DataUpdate> {
 protected:
  std::string function() const { return std::string("PartnerLib::") + GetParam().function; }
};
INSTANTIATE_TEST_SUITE_P(Every, CapturedData, testing::ValuesIn(dataUpdates()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(CapturedData, IsSentWhenItJustFits) {
  Child child = Child::helper("capture_last_write", GetParam().fitting);
  EXPECT_EQ(child.readLine(), "2048 bytes, length word 2048") << child.standardError();
}

TEST_P(CapturedData, StopsWhenItIsOneByteTooLong) {
  Child child = Child::helper("capture_last_write", GetParam().over);
  expectStop(child, {std::string("Error: ") + GetParam().length_text + "2049",
                     "JexPartnerLibMatchCallback", function(), "len <= PACK_BUFFER_SIZE"});
}

TEST_P(CapturedData, StopsWhenItsSizeCannotBeTold) {
  Child child = Child::helper("capture_last_write", GetParam().fitting,
                              {{"JX_MODEL_FAULTS", "jx_drv_plcmt_pack_data_size:1:status=15"}});
  expectStop(child, {std::string("Error: ") + GetParam().size_text + "Unexpected error",
                     "JexPartnerLibMatchCallback", function(), "sts == JX_SUCCESS"});
}

TEST_P(CapturedData, StopsWhenItCannotBePacked) {
  Child child = Child::helper("capture_last_write", GetParam().fitting,
                              {{"JX_MODEL_FAULTS", "jx_drv_plcmt_copy_pack:1:status=1000"}});
  expectStop(child, {std::string("Error: ") + GetParam().pack_text + "Unknown error",
                     "JexPartnerLibMatchCallback", function(), "sts == JX_SUCCESS"});
}

// The length is looked at after the size query and before anything is packed.
TEST_P(CapturedData, IsMeasuredBeforeItIsPacked) {
  Child child = Child::helper("capture_last_write", GetParam().over,
                              {{"JX_MODEL_FAULTS", "jx_drv_plcmt_copy_pack:1:status=3"}});
  expectStop(child, {std::string("Error: ") + GetParam().length_text + "2049",
                     "JexPartnerLibMatchCallback", function(), "len <= PACK_BUFFER_SIZE"});
}

/// Statuses of an SDK call as they stand at the end of a line.
class StatusInALine : public testing::TestWithParam<std::pair<const char*, const char*>> {};
INSTANTIATE_TEST_SUITE_P(Outside, StatusInALine,
                         testing::Values(std::pair("26", "Hardware entry not found"),
                                         std::pair("27", "Unknown error"),
                                         std::pair("1000", "Unknown error"),
                                         std::pair("4294967295", "Unknown error") /* -1 */));

TEST_P(StatusInALine, IsATextOfTheTable) {
  Child child = Child::helper(
      "capture_last_write", dataUpdates()[0].fitting,
      {{"JX_MODEL_FAULTS", std::string("jx_drv_plcmt_copy_pack:1:status=") + GetParam().first}});
  expectStop(child,
             {std::string("Error: plcmt Pack failed in match add returns: ") + GetParam().second,
              "JexPartnerLibMatchCallback", "PartnerLib::packMatchCallback(", "sts == JX_SUCCESS"});
}

}  // namespace
}  // namespace jextest
