// The manual page says what the shell does.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "shell.h"

namespace jexapps {
namespace {

/// The manual page as it is read: without what sets its type.
std::string manualPage() {
  std::ifstream file(JEX_MANUAL_PAGE);
  std::string page{std::istreambuf_iterator<char>(file), {}};
  for (const char* mark : {"\\fB", "\\fI", "\\fR", "\\fP", "\\", "\"", "\n."}) {
    for (size_t at = page.find(mark); at != std::string::npos; at = page.find(mark, at)) {
      page.replace(at, std::string(mark).size(), *mark == '\n' ? "\n" : "");
    }
  }
  return page;
}

TEST(ManualPage, NamesEveryCommandAndItsOptions) {
  const std::string page = manualPage();
  ASSERT_FALSE(page.empty()) << JEX_MANUAL_PAGE;
  for (const Command& command : commands()) {
    EXPECT_NE(page.find(std::string(" ") + command.name), std::string::npos) << command.name;
    for (std::string& option : splitWords(command.options)) {
      if (option == "FIELD=") continue;
      EXPECT_NE(page.find(option), std::string::npos) << command.name << ": " << option;
    }
  }
}

TEST(Help, NamesEveryOptionThatCompletionOffers) {
  for (const Command& command : commands()) {
    for (const std::string& option : splitWords(command.options)) {
      EXPECT_NE(std::string(command.usage).find(option), std::string::npos)
          << command.name << ": " << option;
    }
  }
}

}  // namespace
}  // namespace jexapps
