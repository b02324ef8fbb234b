// What the shell says where the SDK refuses: the thing, and the bound.
#include "refusal.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "shell_on_device.h"

namespace jexapps {
namespace {

using nlohmann::json;

/// With the router's tables made so small that they can be filled.
class RefusalTest : public ShellOnDevice {
 protected:
  std::vector<std::string> programFiles() override {
    json program = json::parse(std::ifstream(JEX_PROGRAMS_DIR "/router.json"));
    for (json& table : program.at("tables")) {
      if (kSizes.count(table.at("name")) != 0) table["size"] = kSizes.at(table.at("name"));
      if (table.at("name") == "ecmp_groups") table["max_members"] = 3;
    }
    path_ =
        std::filesystem::temp_directory_path() / ("refusal-" + std::to_string(getpid()) + ".json");
    std::ofstream(path_) << program;
    return {path_.string()};
  }

  void SetUp() override {
    ShellOnDevice::SetUp();
    std::filesystem::remove(path_);
    for (int id = 1; id <= 4; ++id) {
      ASSERT_EQ(answer(memberCommand(id)), "ok handle " + std::to_string(999 + id));
    }
  }

  static std::string memberCommand(int id) {
    return "member-add nexthops member=" + std::to_string(id) +
           " -> set_nexthop port=1 dmac=1 smac=2";
  }

  void expectRefusals(const std::vector<std::pair<const char*, const char*>>& rows) {
    for (const auto& [line, reason] : rows) {
      EXPECT_EQ(answer(line), "error: " + std::string(reason));
    }
  }

  const std::map<std::string, int> kSizes = {
      {"ipv4_lpm", 2}, {"nexthops", 4}, {"ecmp_groups", 2}, {"acl", 2}};
  std::filesystem::path path_;
};

TEST_F(RefusalTest, NamesMembersAndGroupsThatDoNotExist) {
  given({"group-create ecmp_groups group=7 members=1"});
  expectRefusals({
      {"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=99", "member 99 does not exist in nexthops"},
      {"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> group=9", "group 9 does not exist in ecmp_groups"},
      {"default ipv4_lpm -> group=9", "group 9 does not exist in ecmp_groups"},
      {"member-modify nexthops member=9 -> set_nexthop port=1 dmac=1 smac=2",
       "member 9 does not exist in nexthops"},
      {"member-delete nexthops member=9", "member 9 does not exist in nexthops"},
      {"group-create ecmp_groups group=8 members=1,9", "member 9 does not exist in nexthops"},
      {"group-add ecmp_groups group=8 member=1", "group 8 does not exist in ecmp_groups"},
      {"group-add ecmp_groups group=7 member=9", "member 9 does not exist in nexthops"},
      {"group-remove ecmp_groups group=7 member=2", "member 2 is not in group 7 of ecmp_groups"},
      {"group-activate ecmp_groups group=7 member=2", "member 2 is not in group 7 of ecmp_groups"},
      {"group-destroy ecmp_groups group=8", "group 8 does not exist in ecmp_groups"},
      {"fallback ecmp_groups member=9", "member 9 does not exist in nexthops"},
      {"clear-fallback ecmp_groups", "ecmp_groups has no fallback"},
  });
}

TEST_F(RefusalTest, NamesEntriesByTheirKeys) {
  given({"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1", "add acl l4.dport=80..443 -> deny"});
  expectRefusals({
      {"delete ipv4_lpm ipv4.dst=11.0.0.0/8",
       "entry ipv4.dst=11.0.0.0/8 does not exist in ipv4_lpm"},
      {"modify ipv4_lpm ipv4.dst=11.0.0.0/8 -> member=1",
       "entry ipv4.dst=11.0.0.0/8 does not exist in ipv4_lpm"},
      {"modify ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=9", "member 9 does not exist in nexthops"},
      {"add ipv4_lpm ipv4.dst=0x0a000000/8 -> member=1",
       "entry ipv4.dst=10.0.0.0/8 exists already in ipv4_lpm"},
      {"add acl l4.dport=80..443 priority=9 -> permit",
       "entry ipv4.src=* ipv4.dst=* ipv4.protocol=* l4.sport=* l4.dport=80..443 exists already in "
       "acl"},
      {"move acl priority=3",
       "entry ipv4.src=* ipv4.dst=* ipv4.protocol=* l4.sport=* l4.dport=* does not exist in acl"},
      {"clear-default acl", "acl has no default entry"},
  });
}

TEST_F(RefusalTest, NamesWhatExistsAlready) {
  given({"group-create ecmp_groups group=7 members=1"});
  expectRefusals({
      {memberCommand(2).c_str(), "member 2 exists already in nexthops"},
      {"group-create ecmp_groups group=7", "group 7 exists already in ecmp_groups"},
      {"group-create ecmp_groups group=8 members=2,1,2", "member 2 is given twice"},
      {"group-add ecmp_groups group=7 member=1", "member 1 is already in group 7 of ecmp_groups"},
  });
}

TEST_F(RefusalTest, NamesTheBoundOfWhatIsFull) {
  given({"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1",
         "add ipv4_lpm ipv4.dst=11.0.0.0/8 -> member=1", "group-create ecmp_groups group=7 max=2",
         "group-add ecmp_groups group=7 member=1", "group-add ecmp_groups group=7 member=2"});
  expectRefusals({
      {"add ipv4_lpm ipv4.dst=12.0.0.0/8 -> member=1", "ipv4_lpm is full: 2 entries"},
      {"group-add ecmp_groups group=7 member=3", "group 7 of ecmp_groups is full: 2 members"},
      {"group-create ecmp_groups group=8 max=1 members=1,2",
       "group 8 takes at most 1 members, 2 are given"},
      {"group-create ecmp_groups group=8 members=1,2,3,4",
       "group 8 of ecmp_groups cannot have 4 members: Not enough space"},
      {"group-create ecmp_groups group=8 max=4",
       "max=4: groups of ecmp_groups cannot have that many members: Invalid arguments"},
  });
  EXPECT_EQ(answer(memberCommand(5)), "error: nexthops is full: 4 members");
  given({"group-create ecmp_groups group=8"});
  EXPECT_EQ(answer("group-create ecmp_groups group=9"), "error: ecmp_groups is full: 2 groups");
}

TEST_F(RefusalTest, NamesWhatIsInUse) {
  given({"group-create ecmp_groups group=7 members=1",
         "add ipv4_lpm ipv4.dst=10.0.0.0/8 -> group=7"});
  expectRefusals({
      {"member-delete nexthops member=1",
       "member 1 of nexthops is in use: an entry, a group or the fallback refers to it"},
      {"group-destroy ecmp_groups group=7",
       "group 7 of ecmp_groups is in use: an entry refers to it"},
  });
}

TEST_F(RefusalTest, KeepsTheTextOfAStatusThatSaysNoMore) {
  const TableFacts& table = sut_->table("ipv4_lpm");
  const Operation operation{table, Operation::Kind::kDefault};
  EXPECT_EQ(refusal(*sut_, operation, JX_HW_UPDATE_FAILED),
            "the default entry of ipv4_lpm: Updating hardware failed");
}

TEST_F(RefusalTest, GivesTheStatusToProgramsToo) {
  useFormat(/*json=*/true);
  EXPECT_EQ(answer("delete ipv4_lpm ipv4.dst=10.0.0.0/8"),
            R"({"ok":false,"error":"entry ipv4.dst=10.0.0.0/8 does not exist in ipv4_lpm",)"
            R"("status":6})");
}

}  // namespace
}  // namespace jexapps
