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
  Output(std::ostream& stream, bool json) : stream_(stream), json_(json) {}

  bool json() const { return json_; }

  /// Whole lines that come before the result.
  void listing(std::string_view lines) {
    stream_.write(lines.data(), static_cast<std::streamsize>(lines.size()));
  }

  /// The result line, flushed. `line_number` is the script's, for errors.
  void result(const Result& result, std::optional<uint64_t> line_number);

  /// False once the reader has gone.
  bool good() const { return stream_.good(); }

 private:
  std::ostream& stream_;
  bool json_;
};

}  // namespace jexapps
