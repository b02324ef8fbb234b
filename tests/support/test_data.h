// The files that tests read: those that the build makes (JEX_TEST_DATA), and real ones of the
// folder that the environment variable JEX_REAL_DATA names. A test takes them as parameters: a name
// for each file that is made, and kReal for all real ones, so that the tests are the same
// everywhere; without JEX_REAL_DATA those of kReal are skipped.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace jextest {

inline constexpr const char* kReal = "real";
inline constexpr const char* kNoRealData =
    "JEX_REAL_DATA is not set: it names the folder of real data";

/// The path of a file that the build makes.
inline std::string madeFile(const std::string& name) {
  return std::string(JEX_TEST_DATA) + "/" + name;
}

/// Empty where nobody has named it.
inline std::string realFolder() {
  const char* const folder = std::getenv("JEX_REAL_DATA");
  return folder == nullptr ? "" : folder;
}

/// Paths of the files of a folder, sorted; none where there is no folder.
inline std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> paths;
  std::error_code none;
  for (const auto& file : std::filesystem::directory_iterator(folder, none)) {
    if (file.is_regular_file()) paths.push_back(file.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

/// The parameters of a test over all files that the build makes in `folder`, and over real ones.
inline std::vector<std::string> madeAndReal(const std::string& folder) {
  std::vector<std::string> names;
  for (const std::filesystem::path path : filesIn(madeFile(folder))) {
    names.push_back(path.filename());
  }
  names.push_back(kReal);
  return names;
}

/// A parameter as a test may be called.
inline std::string inWords(const testing::TestParamInfo<std::string>& file) {
  std::string name = file.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

/// A test over the files that its parameter stands for, one after the other.
class OverFiles : public testing::TestWithParam<std::string> {
 protected:
  /// `made` and `real` are the folders below JEX_TEST_DATA and JEX_REAL_DATA; `ending` is that of
  /// the real files that count.
  OverFiles(std::string made, std::string real, std::string ending = "")
      : made_(std::move(made)), real_(std::move(real)), ending_(std::move(ending)) {}

  void SetUp() override {
    if (GetParam() != kReal) {
      files_ = {madeFile(made_ + "/" + GetParam())};
      return;
    }
    if (realFolder().empty()) GTEST_SKIP() << kNoRealData;
    const std::string folder = realFolder() + "/" + real_;
    for (const std::string& file : filesIn(folder)) {
      const size_t size = ending_.size();
      const bool fits = file.size() >= size && file.compare(file.size() - size, size, ending_) == 0;
      if (fits) files_.push_back(file);
    }
    ASSERT_FALSE(files_.empty()) << folder << " has no files *" << ending_;
  }

  const std::vector<std::string>& files() const { return files_; }

  /// Calls `test` with each file, up to the first that fails.
  template <typename Test>
  void forEachFile(Test test) {
    for (const std::string& file : files_) {
      SCOPED_TRACE(file);
      test(file);
      if (HasFailure()) return;
    }
  }

 private:
  const std::string made_, real_, ending_;
  std::vector<std::string> files_;
};

}  // namespace jextest
