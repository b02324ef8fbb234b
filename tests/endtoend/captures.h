// The recorded captures as parameters of tests. JEX_CAPTURES, their folder, is the test's own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

namespace jextest {

/// File names, sorted.
inline std::vector<std::string> captures() {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(JEX_CAPTURES)) {
    names.push_back(file.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// A file name as a test may be called.
inline std::string inWords(const testing::TestParamInfo<std::string>& file) {
  std::string name = file.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

}  // namespace jextest
