// Checked reading of a JSON document. A Node is a value with its place in the document; whatever is
// asked of it and does not hold becomes a LoadFailure with that place.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/program/load_failure.h"

namespace jxmodel {

/// Keeps the order of members, so that the first error is the first one of the file.
using Json = nlohmann::ordered_json;

inline constexpr uint32_t kMaxNesting = 64;      // levels of lists and objects
inline constexpr uint32_t kMaxNameLength = 255;  // characters

/// `text` between single quotes, shortened where it is long.
std::string inQuotes(std::string_view text);

/// Parses a document and refuses what a parser alone lets pass: members given twice, and nesting
/// that a reader's stack should not follow. Throws LoadFailure.
Json parseDocument(std::string_view text);

/// A value of the document, which must outlive it, and its JSON pointer.
class Node {
 public:
  explicit Node(const Json& value, std::string place = {})
      : value_(&value), place_(std::move(place)) {}

  [[noreturn]] void fail(std::string reason) const;

  bool isObject() const { return value_->is_object(); }
  bool isString() const { return value_->is_string(); }
  bool isUnsigned() const { return value_->is_number_unsigned(); }

  /// Refuses anything but an object whose members are all in `members`. "description" is a member
  /// of everything. `what` names the object in the reason: "a match table".
  void expectObject(std::string_view what, std::initializer_list<const char*> members) const;

  bool has(const char* member) const { return value_->contains(member); }
  /// A member of an object; missing is a failure.
  Node at(const char* member) const;
  std::optional<Node> find(const char* member) const;
  /// All members of an object, in the order of the file.
  std::vector<std::pair<std::string, Node>> members() const;

  /// The items of a list that has from `min` to `max` of them.
  std::vector<Node> items(size_t min, size_t max) const;
  const std::string& string() const;
  /// A string that can stand as a name: it needs no quotes on a command line.
  const std::string& name() const;
  /// A whole number from `min` to `max`.
  uint32_t number(uint32_t min, uint32_t max) const;
  bool boolean() const;

  /// Index of the string in `choices`; `what` names them in the reason: "match kind".
  template <typename Row, size_t kRows>
  const Row& choice(std::string_view what, const Row (&rows)[kRows]) const {
    const std::string& text = string();
    for (const Row& row : rows) {
      if (text == row.name) return row;
    }
    fail("unknown " + std::string(what) + " " + inQuotes(text));
  }

  /// A constant of `width` bits as bytesOf(width) bytes in network byte order: a number, or a
  /// string in decimal, 0x, MAC, IPv4 or IPv6 form.
  std::vector<uint8_t> constant(uint32_t width) const;

 private:
  std::string describe() const;

  const Json* value_;
  std::string place_;
};

}  // namespace jxmodel
