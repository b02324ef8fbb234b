// Files of routes: one PREFIX/LENGTH per line, plain text or gzip. Empty lines, and lines that
// begin with # or ;, are skipped.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace jexapps {

struct Prefix {
  uint32_t width = 0;  // bits of the address: 32 or 128
  uint8_t address[16] = {};
  uint16_t length = 0;
};

/// Reads "10.0.0.0/8" or "2001:db8::/32". False with *error set to the reason, as for bits beyond
/// the length.
bool parsePrefix(std::string_view text, Prefix* prefix, std::string* error);

/// Reads the lines of a file, however it is compressed. The file may be a pipe or a device.
class RouteFile {
 public:
  static constexpr size_t kMaxLine = 1 << 16;  // bytes

  /// `stop_requested` is asked while the file has nothing to read, and before each piece of it.
  /// Throws CommandError if the file cannot be opened.
  RouteFile(const std::string& path, std::function<bool()> stop_requested);
  ~RouteFile();
  RouteFile(const RouteFile&) = delete;
  RouteFile& operator=(const RouteFile&) = delete;

  /// The next line that holds something, without blanks around it; valid until the next call.
  /// False at the end, and once a stop is requested. Throws CommandError if the file cannot be read
  /// on, or a line is too long.
  bool next(std::string_view* line);

  /// Number of the line that next gave, from 1.
  uint64_t lineNumber() const { return line_number_; }

  /// Whether a requested stop has ended the file.
  bool stopped() const { return stopped_; }

 private:
  class Gunzip;

  bool readLine(std::string_view* line);
  bool readMore();
  bool readBytes();
  [[noreturn]] void fail(const std::string& reason) const;

  std::string path_;
  std::function<bool()> stop_requested_;
  int fd_;
  std::string bytes_;               // as they were read, until they are unpacked
  std::unique_ptr<Gunzip> gunzip_;  // null for plain text
  std::string text_;
  size_t begin_ = 0;  // of what has not been given out, in text_
  uint64_t line_number_ = 0;
  bool begun_ = false;  // the first bytes have told whether the file is compressed
  bool ended_ = false;
  bool stopped_ = false;
};

}  // namespace jexapps
