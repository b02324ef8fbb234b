// Words that the shell offers in the place of the one that is being typed.
#include <gtest/gtest.h>

#include "shell_on_device.h"

namespace jexapps {
namespace {

using Words = std::vector<std::string>;

class CompletionTest : public ShellOnDevice {
 protected:
  Words words(const std::string& text) { return sut_->completions(text).words; }
};

TEST_F(CompletionTest, KnowsCommandsTablesFieldsAndActions) {
  EXPECT_EQ(words("du"), Words{"dump"});
  EXPECT_EQ(words("dump dm"), Words{"dmac"});
  EXPECT_EQ(words("help clear-"), (Words{"clear-default", "clear-fallback"}));
  EXPECT_EQ(words("add dmac eth"), Words{"ethernet.dst="});
  EXPECT_EQ(words("add dmac ethernet.dst=1 -> forward p"), Words{"port="});
}

TEST_F(CompletionTest, OffersTheTablesThatTheCommandIsFor) {
  EXPECT_EQ(words("add "), (Words{"smac", "dmac", "ipv4_lpm", "ipv6_lpm", "acl"}));
  EXPECT_EQ(words("member-add "), Words{"nexthops"});
  EXPECT_EQ(words("group-create "), Words{"ecmp_groups"});
  EXPECT_EQ(words("load-routes "), (Words{"ipv4_lpm", "ipv6_lpm"}));
}

TEST_F(CompletionTest, OffersMembersAndGroupsByTheirWords) {
  EXPECT_EQ(words("member-add nexthops "), (Words{"member=", "->"}));
  EXPECT_EQ(words("member-add nexthops member=1 "), Words{"->"});
  EXPECT_EQ(words("member-add nexthops member=1 -> "), Words{"set_nexthop"});
  EXPECT_EQ(words("member-delete nexthops "), Words{"member="});
  EXPECT_EQ(words("group-create ecmp_groups "), (Words{"group=", "max=", "members="}));
  EXPECT_EQ(words("group-add ecmp_groups group=7 "), Words{"member="});
  EXPECT_EQ(words("fallback ecmp_groups "), Words{"member="});
  EXPECT_TRUE(words("member-add nexthops $").empty());
  EXPECT_TRUE(words("group-add ecmp_groups $").empty());
}

TEST_F(CompletionTest, OffersReferencesBehindTheArrowWhereTheyFit) {
  EXPECT_EQ(words("add ipv4_lpm ipv4.dst=10.0.0.0/8 -> "), (Words{"member=", "group="}));
  EXPECT_EQ(words("default ipv4_lpm -> m"), Words{"member="});
  EXPECT_TRUE(words("add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1 ").empty());
  EXPECT_EQ(words("add dmac ethernet.dst=1 -> "), (Words{"forward", "flood"}));
  EXPECT_TRUE(words("add dmac ethernet.dst=1 -> m").empty());
}

TEST_F(CompletionTest, OffersParametersOfTheActionThatWasNamed) {
  EXPECT_EQ(words("member-add nexthops member=1 -> set_nexthop port=1 "),
            (Words{"dmac=", "smac=", "counter="}));
  EXPECT_TRUE(words("add dmac ethernet.dst=1 -> p").empty());
  EXPECT_TRUE(words("add dmac ethernet.dst=1 -> flood p").empty());
}

TEST_F(CompletionTest, OffersPriorityAndIdleTimeOnEitherSideWhereEntriesHaveThem) {
  EXPECT_EQ(words("add acl p"), Words{"priority="});
  EXPECT_EQ(words("add acl -> deny p"), Words{"priority="});
  EXPECT_TRUE(words("add acl priority=3 -> deny p").empty());
  EXPECT_EQ(words("modify smac t"), Words{"ttl="});
  EXPECT_TRUE(words("add dmac t").empty());
  EXPECT_TRUE(words("modify acl p").empty());
}

TEST_F(CompletionTest, OffersNoArrowWhereThereIsNone) {
  EXPECT_TRUE(words("dump dmac ").empty());
  EXPECT_EQ(words("delete dmac "), Words{"ethernet.dst="});
  EXPECT_TRUE(words("dump dmac -> ").empty());
}

TEST_F(CompletionTest, OffersFilesWhereAFileIsNamedAndNowhereElse) {
  EXPECT_TRUE(sut_->completions("load-routes ipv4_lpm /t").files);
  for (const char* text : {"", "fly ", "load-routes ", "load-routes ipv4_lpm routes.txt ", "add ",
                           "add dmac x", "add dmac ethernet.dst=1 -> x", "help ", "quit "}) {
    EXPECT_FALSE(sut_->completions(text).files) << text;
  }
  EXPECT_EQ(words("load-routes ipv4_lpm routes.txt "),
            (Words{"limit=", "nexthops=", "groups=", "on-error=continue", "->"}));
  EXPECT_TRUE(words("load-routes ipv4_lpm routes.txt on-error=continue o").empty());
}

}  // namespace
}  // namespace jexapps
