// Files of routes: one PREFIX/LENGTH a line, plain or gzip; empty lines and those that begin with
// # are skipped.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace jexapps {

struct Prefix {
  uint32_t width = 0;  // bits of the address: 32 or 128
  uint8_t address[16] = {};
  uint16_t length = 0;
};

/// Reads "10.0.0.0/8" or "2001:db8::/32". False with *error set to the reason.
bool parsePrefix(std::string_view text, Prefix* prefix, std::string* error);

/// Reads the lines of a file, however it is compressed.
class RouteFile {
 public:
  /// Throws CommandError if the file cannot be opened.
  explicit RouteFile(const std::string& path);

  /// The next line that holds something, without blanks around it; valid until the next call.
  /// False at the end. Throws CommandError if the file cannot be read on.
  bool next(std::string_view* line);

  /// Number of the line that next gave, from 1.
  uint64_t lineNumber() const { return line_number_; }

 private:
  bool readLine(std::string_view* line);

  struct Close {
    void operator()(gzFile file) const { gzclose(file); }
  };
  std::string path_;
  std::unique_ptr<gzFile_s, Close> file_;
  std::string long_line_;  // of a line that does not fit buffer_
  char buffer_[256];
  uint64_t line_number_ = 0;
};

}  // namespace jexapps
