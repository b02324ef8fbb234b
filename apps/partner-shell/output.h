// What the shell writes: lines of a listing, and one result line a command.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace jexapps {

/// How a command ended. `text` is what a person reads behind "ok" or "error:"; `fields` join the
/// JSON object.
struct Result {
  bool ok = true;
  std::string text;
  nlohmann::ordered_json fields = nlohmann::ordered_json::object();
};

class Output {
 public:
  /// `columns`: width of the terminal that `stream` is, 0 if it is none.
  Output(std::ostream& stream, bool json, size_t columns = 0)
      : stream_(stream), json_(json), columns_(columns) {}

  bool json() const { return json_; }
  size_t columns() const { return columns_; }

  /// Whole lines that come before the result.
  void listing(std::string_view lines) {
    stream_.write(lines.data(), static_cast<std::streamsize>(lines.size()));
  }

  /// Lets a reader see what has been listed until now.
  void flush() { stream_.flush(); }

  /// The result line, flushed. `line_number` is the script's, for errors.
  void result(const Result& result, std::optional<uint64_t> line_number);

  /// False once the reader has gone.
  bool good() const { return stream_.good(); }

 private:
  std::ostream& stream_;
  bool json_;
  size_t columns_;
};

}  // namespace jexapps
