// Replay of hand-built updates on an agent's physical device, and every way in which it stops.
#include <gtest/gtest.h>

#include <csignal>

#include "support/processes.h"
#include "support/raw_socket.h"
#include "support/stop.h"
#include "support/write_command.h"
#include "wire/recorded_update.h"
#include "wire/scripts.h"

namespace jextest {
namespace {

constexpr uint32_t kPid = 77;

/// The updates of one script: those before, and the one in question.
struct Replay {
  explicit Replay(const UpdateScript& script)
      : device(DeviceKind::kVirtual, 1, {"limits"}),
        before(messagesOf(device.view(), script.before, kPid)),
        dump_before(device.view().dump()),
        update(messagesOf(device.view(), {script.write}, kPid).at(0)) {}

  void sendBefore(RawPartner& partner) const {
    for (const Bytes& message : before) partner.send(message);
  }

  SwitchDevice device;
  std::vector<Bytes> before;
  std::vector<std::string> dump_before;
  Bytes update;
};

std::vector<std::string> updateNames() {
  std::vector<std::string> names;
  for (const UpdateScript& script : updateScripts()) names.emplace_back(script.name);
  return names;
}

class ReplayedUpdate : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Every, ReplayedUpdate, testing::ValuesIn(updateNames()),
                         [](const auto& test) { return test.param; });

TEST_P(ReplayedUpdate, ReachesThePhysicalDevice) {
  Child agent = startAgent();
  RawPartner partner(kPid);
  const Replay replay(scriptOf(GetParam()));
  ASSERT_NE(replay.dump_before, replay.device.view().dump()) << "a write that changes nothing";
  replay.sendBefore(partner);
  expectDump(agent, replay.dump_before);
  partner.send(replay.update);
  expectDump(agent, replay.device.view().dump());
  EXPECT_EQ(agent.standardError(), "");
}

// The Partner's device, pid and pointer mean nothing here.
TEST_P(ReplayedUpdate, IsAppliedWhateverDeviceAndPointerItNames) {
  AgentOptions options;
  options.device = 3;
  Child agent = startAgent(options);
  RawPartner partner(kPid);
  Replay replay(scriptOf(GetParam()));
  replay.sendBefore(partner);
  const UpdateLayout& layout = layoutOf(u32At(replay.update, 0), u32At(replay.update, 28));
  putU32(replay.update, 4, 0xFFFFFFFF);
  putU32(replay.update, 16, 200);
  if (layout.pointer >= 0) {
    putU32(replay.update, 32 + 4 * static_cast<size_t>(layout.pointer), 0xDEADBEEF);
  }
  partner.send(replay.update);
  expectDump(agent, replay.device.view().dump());
}

/// A group that is created with nobody in it still is one processed operation.
TEST(Replay, CreatesAGroupWithoutElements) {
  Child agent = startAgent();
  RawPartner partner(kPid);
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  const auto messages = messagesOf(device.view(), {"group-create groups 5"}, kPid);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].size(), 56u);
  partner.send(messages[0]);
  expectDump(agent, device.view().dump());
  EXPECT_EQ(device.view().dump().size(),
            1u + SwitchDevice(DeviceKind::kVirtual, 2, {"limits"}).view().dump().size());
}

TEST(Replay, CreatesTheLargestGroup) {
  Child agent = startAgent();
  RawPartner partner(kPid);
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  std::vector<std::string> writes;
  std::string create = "group-create groups 5";
  for (int i = 1; i <= 249; ++i) {
    writes.push_back("member-add members " + std::to_string(i) + " nop");
    create += " " + std::to_string(i) + (i % 3 == 0 ? ":0" : ":1");
  }
  writes.push_back(create);
  const auto messages = messagesOf(device.view(), writes, kPid);
  EXPECT_EQ(messages.back().size(), 2048u);
  for (const Bytes& message : messages) partner.send(message);
  expectDump(agent, device.view().dump());
}

/// Texts of one update's replay.
struct ReplayTexts {
  const char* name;       ///< of the script
  const char* step;       ///< function that adds the operation
  const char* operation;  ///< SDK call that does so
  const char* operation_text;
  const char* size_text = nullptr;  ///< null: no data
  const char* unpack_text = nullptr;
};

const std::vector<ReplayTexts>& replayTexts() {
  static const std::vector<ReplayTexts> all = {
      {"MatchAdd", "matchTableAddOneEntry(", "mat_add", "Table add failed match add returns: ",
       "invalid size in plcmt Unpack failed match add returns: ",
       "Unable to Unpack(bad data) failed match add returns: "},
      {"MatchSetDefault", "matchTableSetDefaultEntry(", "mat_set_dflt",
       "Table setdefault failed match returns: ",
       "invalid size in plcmt Unpack failed match setdefault returns: ",
       "Unable to Unpack(bad data) failed match setdefault returns: "},
      {"MatchClearDefault", "matchTableClearDefaultEntry(", "mat_clr_dflt",
       "Table cleardefault failed match returns: "},
      {"MatchDelete", "matchTableDelOneEntry(", "mat_del", "HW op failed match del returns: "},
      {"MatchModify", "matchTableModOneEntry(", "mat_mod", "Table mod failed match mod returns: ",
       "invalid size in plcmt Unpack failed match mod returns: ",
       "Unable to Unpack(bad data) failed match mod returns: "},
      {"MatchMove", "matchTableMoveOneEntry(", "mat_mov", "Table move failed match mov returns: ",
       "invalid size in plcmt Unpack failed match move returns: ",
       "Unable to Unpack(bad data) failed match mov returns: "},
      {"MemberAdd", "adtAddOneEntry(", "adt_add", "ADT Plcmt failed adt add returns: ",
       "invalid size in plcmt Unpack failed adt add returns: ",
       "Unable to Unpack(bad data) failed adt add returns: "},
      {"MemberDelete", "adtDelOneEntry(", "adt_del", "ADT Plcmt failed adt del returns: "},
      {"MemberModify", "adtModOneEntry(", "adt_mod", "ADT Plcmt failed adt mod returns: ",
       "invalid size in plcmt Unpack failed adt mod returns: ",
       "Unable to Unpack(bad data) failed adt mod returns: "},
      {"GroupCreate", "selCreateGroup(", "sel_grp_create", "SEL Group create Failed returns: "},
      {"GroupDestroy", "selDeleteGroup(", "sel_grp_destroy", "SEL Group delete Failed returns: "},
      {"GroupMemberAdd", "selUpdateAdd(", "sel_add", "SEL update add Failed returns: ",
       "invalid size in plcmt Unpack failed sel update add returns: ",
       "Unable to Unpack(bad data) failed sel update add returns: "},
      {"GroupMemberDelete", "selUpdateDel(", "sel_del", "SEL update delete Failed returns: "},
      {"GroupMemberActivate", "selUpdateActivate(", "sel_activate",
       "SEL update activate Failed returns: "},
      {"GroupMemberDeactivate", "selUpdateDeactivate(", "sel_deactivate",
       "SEL update deactivate Failed returns: "},
      {"FallbackSet", "selSetFallback(", "sel_set_fallback", "SEL set fallback Failed returns: ",
       "invalid size in plcmt Unpack failed sel set fallback returns: ",
       "Unable to Unpack(bad data) failed sel set fallback returns: "},
      {"FallbackClear", "selClearFallback(", "sel_clr_fallback",
       "SEL clear fallback Failed returns: "},
  };
  return all;
}

/// How often the replay of `messages` makes a call that happens once for each with data.
int updatesWithData(const std::vector<Bytes>& messages) {
  int count = 0;
  for (const Bytes& message : messages) {
    if (layoutOf(u32At(message, 0), u32At(message, 28)).packed) ++count;
  }
  return count;
}

std::string fault(const std::string& entry, int nth, const std::string& effect) {
  return entry + ":" + std::to_string(nth) + ":" + effect;
}

class StoppedReplay : public testing::TestWithParam<ReplayTexts> {
 protected:
  StoppedReplay() : replay_(scriptOf(GetParam().name)) {}

  /// Expects that an agent with `faults` takes what comes before, and stops on the update.
  void expectStopWith(const std::string& faults, const Stop& stop) {
    Child agent = startAgent({}, {{"JX_MODEL_FAULTS", faults}});
    RawPartner partner(kPid);
    replay_.sendBefore(partner);
    partner.send(replay_.update);
    expectStop(agent, stop);
  }

  Stop stopIn(const std::string& function, const std::string& error,
              const std::string& expression) const {
    return {"Error: " + error, "JexPartnerLibMatchTable", "PartnerLib::" + function, expression};
  }

  uint32_t kind() const { return u32At(replay_.update, 0); }
  std::string handler() const {
    return kind() == 0   ? "matchTableDeserialize("
           : kind() == 1 ? "adtDeserialize("
                         : "selDeserialize(";
  }
  int dataCall() const { return updatesWithData(replay_.before) + 1; }
  int processCall() const { return static_cast<int>(replay_.before.size()) + 1; }

  Replay replay_;
};
INSTANTIATE_TEST_SUITE_P(Every, StoppedReplay, testing::ValuesIn(replayTexts()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(StoppedReplay, OnAnOperationThatIsRefused) {
  // Operations of the same name may have come before.
  int nth = 1;
  const uint32_t type = u32At(replay_.update, 28);
  for (const Bytes& message : replay_.before) {
    if (u32At(message, 0) == kind() && u32At(message, 28) == type) ++nth;
  }
  const std::string entry = std::string("pipe_set_one_plcmt_op_") + GetParam().operation;
  expectStopWith(
      fault(entry, nth, "status=2"),
      stopIn(GetParam().step, std::string(GetParam().operation_text) + "No system resources",
             "status == JX_SUCCESS"));
}

TEST_P(StoppedReplay, OnDataWithoutASize) {
  if (GetParam().size_text == nullptr) return;  // no data: nothing to unpack
  expectStopWith(fault("jx_drv_plcmt_unpack_data_size", dataCall(), "status=3"),
                 stopIn(GetParam().step, std::string(GetParam().size_text) + "Invalid arguments",
                        "sts == JX_SUCCESS"));
}

TEST_P(StoppedReplay, OnDataThatCannotBeUnpacked) {
  if (GetParam().unpack_text == nullptr) return;  // no data: nothing to unpack
  expectStopWith(fault("jx_drv_plcmt_copy_unpack", dataCall(), "status=14"),
                 stopIn(GetParam().step, std::string(GetParam().unpack_text) + "IO error",
                        "sts == JX_SUCCESS"));
}

TEST_P(StoppedReplay, OnDataThatWasCorrupted) {
  if (GetParam().size_text == nullptr) return;
  Child agent = startAgent();
  RawPartner partner(kPid);
  replay_.sendBefore(partner);
  Bytes corrupted = replay_.update;
  corrupted.back() = static_cast<uint8_t>(corrupted.back() ^ 0x40);
  partner.send(corrupted);
  EXPECT_EQ(agent.waitForExit().signal, SIGABRT);
  const auto errors = linesWith(agent.standardError(), "Error: ");
  ASSERT_EQ(errors.size(), 1u);
  // Whether the damage shows when the size is asked for or when the data is unpacked is the SDK's.
  EXPECT_TRUE(errors[0] == std::string("Error: ") + GetParam().size_text + "Invalid arguments" ||
              errors[0] == std::string("Error: ") + GetParam().unpack_text + "Invalid arguments")
      << errors[0];
}

TEST_P(StoppedReplay, OnAnUpdateThatTheDeviceRefuses) {
  const std::string texts[] = {"Match Table plcmt failed returns: Updating hardware failed",
                               "ADT plcmt failed",
                               "SEL plcmt failed returns: Updating hardware failed"};
  expectStopWith(fault("pipe_process_plcmt_info", processCall(), "status=18"),
                 stopIn(handler(), texts[kind()], "status == JX_SUCCESS"));
}

TEST_P(StoppedReplay, OnACountOtherThanOne) {
  const std::string texts[] = {"Match Table processed message incorrect count processed: ",
                               "ADT processed message incorrect count processed: ",
                               "SEL processed message incorrect count processed: "};
  for (const char* count : {"0", "2"}) {
    expectStopWith(fault("pipe_process_plcmt_info", processCall(), std::string("count=") + count),
                   stopIn(handler(), texts[kind()] + count, "num_processed == 1"));
  }
}

struct UnknownType {
  const char* name;
  uint32_t message;
  uint32_t type;
  const char* error;
};

class UnknownUpdate : public testing::TestWithParam<UnknownType> {};
INSTANTIATE_TEST_SUITE_P(
    Types, UnknownUpdate,
    testing::Values(
        UnknownType{"Match1", 0, 1, "unhandled update type 1"},
        UnknownType{"Match7", 0, 7, "unhandled update type 7"},
        UnknownType{"Match8", 0, 8, "unhandled update type 8"},
        UnknownType{"MatchMax", 0, 0xFFFFFFFF, "unhandled update type 4294967295"},
        UnknownType{"Adt3", 1, 3, "Unknown ADT type update_type: 3"},
        UnknownType{"AdtMax", 1, 0xFFFFFFFF, "Unknown ADT type update_type: 4294967295"},
        UnknownType{"Sel8", 2, 8, "Unknown SEL type update_type: 8"},
        UnknownType{"SelMax", 2, 0xFFFFFFFF, "Unknown SEL type update_type: 4294967295"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(UnknownUpdate, StopsTheAgent) {
  const char* const handlers[] = {"matchTableDeserialize(", "adtDeserialize(", "selDeserialize("};
  Child agent = startAgent();
  RawPartner partner(kPid);
  Bytes message = request(GetParam().message, kPid, 36);
  putU32(message, 28, GetParam().type);
  partner.send(message);
  expectStop(agent, {std::string("Error: ") + GetParam().error, "JexPartnerLibMatchTable",
                     std::string("PartnerLib::") + handlers[GetParam().message], "false"});
}

}  // namespace
}  // namespace jextest
