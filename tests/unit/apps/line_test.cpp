#include "line.h"

#include <gtest/gtest.h>

#include "command_error.h"

namespace jexapps {
namespace {

using Words = std::vector<std::string>;

Line parsed(const std::string& text, size_t min_operands = 1, size_t max_operands = 1) {
  return parseLine(splitWords(text), min_operands, max_operands);
}

std::string refusal(const std::string& text) {
  try {
    parsed(text);
  } catch (const CommandError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(Words, AreSeparatedByBlanks) {
  EXPECT_EQ(splitWords("  add\tacl   a=1 \r"), (Words{"add", "acl", "a=1"}));
  EXPECT_EQ(splitWords(R"(load-routes t "my routes.txt" x="a b")"),
            (Words{"load-routes", "t", "my routes.txt", "x=a b"}));
  EXPECT_EQ(splitWords(R"(a "")"), (Words{"a", ""}));
}

TEST(Words, CommentsAndEmptyLinesHaveNone) {
  EXPECT_TRUE(splitWords("").empty());
  EXPECT_TRUE(splitWords(" \t ").empty());
  EXPECT_TRUE(splitWords("  # add acl").empty());
  EXPECT_EQ(splitWords("count #1"), (Words{"count", "#1"}));
}

TEST(Line, HasTwoSidesOfTheArrow) {
  Line line = parsed("add acl src=10.0.0.0&&&255.0.0.0 priority=3 -> mark port=1 ttl=5");
  EXPECT_EQ(line.command, "add");
  EXPECT_EQ(line.operands, Words{"acl"});
  EXPECT_TRUE(line.has_arrow);
  EXPECT_EQ(line.action, "mark");
  EXPECT_EQ(line.left.take("src"), "10.0.0.0&&&255.0.0.0");
  EXPECT_EQ(line.left.takeNumber("priority"), 3u);
  EXPECT_TRUE(line.left.empty());
  EXPECT_EQ(line.right.take("port"), "1");
  EXPECT_EQ(line.right.take("port"), std::nullopt);
  ASSERT_EQ(line.right.items().size(), 1u);
  EXPECT_EQ(line.right.items()[0].name, "ttl");
}

TEST(Line, ActionMayBeMissingOrComeLater) {
  EXPECT_EQ(parsed("add t a=1 -> member=3").action, "");
  EXPECT_EQ(parsed("add t a=1 -> ttl=3 drop").action, "drop");
}

TEST(Line, OperandsThatAreNeededMayLookLikeAssignments) {
  EXPECT_EQ(parsed("load-routes t a=b.txt limit=3", 2, 2).operands, (Words{"t", "a=b.txt"}));
  EXPECT_TRUE(parsed("help", 0, 1).operands.empty());
  EXPECT_TRUE(parsed("help a=b", 0, 1).operands.empty());
}

TEST(Line, MistakesAreNamed) {
  EXPECT_EQ(refusal("add t a=1 a=2"), "'a' is given twice");
  EXPECT_EQ(refusal("add t b"), "'b' is no NAME=VALUE");
  EXPECT_EQ(refusal("add t =b"), "'=b' has no name before the =");
  EXPECT_EQ(refusal("add t a=1 -> act -> act"), "a second ->");
  EXPECT_EQ(refusal("add t a=1 -> act more"), "'more' after action 'act' is no NAME=VALUE");
  EXPECT_EQ(refusal("add t \"a=1"), "a double quote is not closed");
  EXPECT_THROW(parsed("add t a=x").left.takeNumber("a"), CommandError);
}

}  // namespace
}  // namespace jexapps
