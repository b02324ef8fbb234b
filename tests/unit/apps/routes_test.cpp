#include "routes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "command_error.h"

namespace jexapps {
namespace {

// A file that goes away with the test.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& content) {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() / ("routes-" + std::to_string(random()));
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~ScratchFile() { std::filesystem::remove(path_); }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

std::string compressed(const std::string& text) {
  const ScratchFile file("");
  const gzFile out = gzopen(file.path().c_str(), "wb");
  gzwrite(out, text.data(), static_cast<unsigned>(text.size()));
  gzclose(out);
  std::ifstream in(file.path(), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::pair<uint64_t, std::string>> routesIn(const std::string& content) {
  const ScratchFile file(content);
  RouteFile sut(file.path(), [] { return false; });
  std::vector<std::pair<uint64_t, std::string>> lines;
  std::string_view line;
  while (sut.next(&line)) lines.emplace_back(sut.lineNumber(), line);
  return lines;
}

const std::vector<std::pair<uint64_t, std::string>> kTwoLines = {{1, "10.0.0.0/8"},
                                                                 {4, "2001:db8::/32"}};

TEST(RouteFile, SkipsEmptyLinesAndCommentsAndCountsThem) {
  EXPECT_EQ(routesIn("10.0.0.0/8\r\n\n# more\n  2001:db8::/32\n"), kTwoLines);
  EXPECT_EQ(routesIn("10.0.0.0/8\n\n\n2001:db8::/32"), kTwoLines);
  EXPECT_TRUE(routesIn("").empty());
}

TEST(RouteFile, SkipsLinesThatBeginWithASemicolon) {
  EXPECT_EQ(routesIn("10.0.0.0/8\n; a list\n;\n2001:db8::/32\n"), kTwoLines);
}

TEST(RouteFile, ReadsGzipOfSeveralParts) {
  EXPECT_EQ(routesIn(compressed("10.0.0.0/8\n\n") + compressed("\n2001:db8::/32\n")), kTwoLines);
  EXPECT_TRUE(routesIn(compressed("")).empty());
}

TEST(RouteFile, ReadsAFileOfOneByte) { EXPECT_EQ(routesIn("1").size(), 1u); }

TEST(RouteFile, BytesBehindGzipDataAreAnError) {
  EXPECT_THROW(routesIn(compressed("10.0.0.0/8\n") + "more"), CommandError);
}

TEST(RouteFile, ReadsGzip) {
  EXPECT_EQ(routesIn(compressed("10.0.0.0/8\n\n\n2001:db8::/32\n")), kTwoLines);
}

TEST(RouteFile, LinesOfAnyLengthStayOneLine) {
  for (const size_t length : {254, 255, 256, 510, 5000}) {
    const std::string long_line(length, 'x');
    const auto lines = routesIn(long_line + "\n10.0.0.0/8\n");
    ASSERT_EQ(lines.size(), 2u) << length;
    EXPECT_EQ(lines[0].second, long_line);
    EXPECT_EQ(lines[1].first, 2u);
  }
}

TEST(RouteFile, ALineWithoutEndIsAnError) {
  const auto reasonOf = [](const std::string& path) -> std::string {
    RouteFile sut(path, [] { return false; });
    std::string_view line;
    try {
      while (sut.next(&line)) continue;
    } catch (const CommandError& error) {
      return error.what();
    }
    return "none";
  };
  EXPECT_EQ(reasonOf("/dev/zero"), "/dev/zero: line 1 is longer than 65536 bytes");
  const ScratchFile packed(compressed("#\n" + std::string(10'000'000, 'x')));
  EXPECT_EQ(reasonOf(packed.path()), packed.path() + ": line 2 is longer than 65536 bytes");
  EXPECT_EQ(reasonOf("/"), "/: Is a directory");
}

// Nobody writes to it, and nobody has to.
TEST(RouteFile, ThatIsAPipeCanBeStopped) {
  const std::string path = ScratchFile("").path();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  int looks = 0;
  RouteFile sut(path, [&looks] { return ++looks > 2; });
  std::string_view line;
  EXPECT_FALSE(sut.next(&line));
  EXPECT_TRUE(sut.stopped());
  std::filesystem::remove(path);
}

TEST(RouteFile, ThatHoldsNothingButEmptyLinesCanBeStopped) {
  const ScratchFile file(std::string(1'000'000, '\n'));
  int looks = 0;
  RouteFile sut(file.path(), [&looks] { return ++looks > 2; });
  std::string_view line;
  EXPECT_FALSE(sut.next(&line));
  EXPECT_TRUE(sut.stopped());
  EXPECT_LT(sut.lineNumber(), 1'000'000u);
}

TEST(RouteFile, ACutOffGzipFileIsAnError) {
  std::string routes;
  std::mt19937 random(1);
  for (int i = 0; i < 100000; ++i) routes += std::to_string(random()) + "\n";
  const std::string whole = compressed(routes);
  EXPECT_THROW(routesIn(whole.substr(0, whole.size() / 2)), CommandError);
}

TEST(RouteFile, AMissingFileIsAnError) {
  try {
    RouteFile sut("/nowhere/routes.txt", [] { return false; });
    FAIL();
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(), "/nowhere/routes.txt: No such file or directory");
  }
}

TEST(Prefix, HasAddressAndLength) {
  Prefix prefix;
  std::string error;
  ASSERT_TRUE(parsePrefix("10.1.0.0/16", &prefix, &error));
  EXPECT_EQ(prefix.width, 32u);
  EXPECT_EQ(prefix.length, 16);
  EXPECT_EQ(prefix.address[1], 1);
  ASSERT_TRUE(parsePrefix("2001:db8::/128", &prefix, &error));
  EXPECT_EQ(prefix.width, 128u);
  EXPECT_EQ(prefix.length, 128);
  EXPECT_EQ(prefix.address[2], 0x0d);
}

TEST(Prefix, RefusalsNameTheReason) {
  const std::pair<const char*, const char*> kWrong[] = {
      {"10.0.0.0", "'10.0.0.0' is no PREFIX/LENGTH"},
      {"10.0.0/8", "'10.0.0/8' has no IPv4 or IPv6 address"},
      {"/8", "'/8' has no IPv4 or IPv6 address"},
      {"10.0.0.0/", "'10.0.0.0/' has no prefix length"},
      {"10.0.0.0/8x", "'10.0.0.0/8x' has no prefix length"},
      {"10.0.0.0/-1", "'10.0.0.0/-1' has no prefix length"},
      {"10.0.0.0/33", "'10.0.0.0/33' has a prefix length beyond 32"},
      {"10.0.0.0/99999", "'10.0.0.0/99999' has a prefix length beyond 32"},
      {"10.1.2.3/8", "'10.1.2.3/8' has bits beyond the prefix; 10.0.0.0/8?"},
      {"2001:db8::1/32", "'2001:db8::1/32' has bits beyond the prefix; 2001:db8::/32?"},
      {"::/129", "'::/129' has a prefix length beyond 128"},
  };
  for (const auto& [text, reason] : kWrong) {
    Prefix prefix;
    std::string error;
    EXPECT_FALSE(parsePrefix(text, &prefix, &error)) << text;
    EXPECT_EQ(error, reason);
  }
}

}  // namespace
}  // namespace jexapps
