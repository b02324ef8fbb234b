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
#include "model/program/program.h"

namespace jxmodel {

/// Members are in the order of their names. The kind that keeps the order of the file copies what
/// is nested in a member, at any depth, whenever a further member arrives.
using Json = nlohmann::json;

inline constexpr uint32_t kMaxNesting = 64;      // levels of lists and objects of a description
inline constexpr uint32_t kMaxNameLength = 255;  // characters

/// `text` between single quotes, shortened where it is long.
std::string inQuotes(std::string_view text);

/// The failure as the caller of a front-end gets it: each text on one line. `error` may be null.
void report(const LoadFailure& failure, const std::string& file, LoadError* error);

/// Parses a document and refuses what a parser alone lets pass: members given twice, and nesting
/// deeper than `max_nesting` levels. Throws LoadFailure.
Json parseDocument(std::string_view text, uint32_t max_nesting = kMaxNesting);

/// A value of a document, which must outlive it. Small: pass and keep copies.
class Node {
 public:
  /// The document itself.
  explicit Node(const Json& document) : value_(&document), document_(&document) {}

  /// Throws a LoadFailure with the JSON pointer of the value.
  [[noreturn]] void fail(std::string reason) const;
  /// The JSON pointer of the value. Searches the document.
  std::string place() const;

  bool isNull() const { return value_->is_null(); }
  bool isBoolean() const { return value_->is_boolean(); }
  bool isObject() const { return value_->is_object(); }
  bool isList() const { return value_->is_array(); }
  bool isString() const { return value_->is_string(); }
  bool isUnsigned() const { return value_->is_number_unsigned(); }

  /// Refuses anything but an object whose members are all in `members`. "description" is a member
  /// of everything. `what` names the object in the reason: "a match table".
  void expectObject(std::string_view what, std::initializer_list<const char*> members) const;

  bool has(const char* member) const { return value_->contains(member); }
  /// A member of an object; missing is a failure.
  Node at(const char* member) const;
  std::optional<Node> find(const char* member) const;
  /// A member that is there and not null.
  std::optional<Node> findValue(const char* member) const;
  /// All members of an object, in the order of their names.
  std::vector<std::pair<std::string, Node>> members() const;

  /// The items of a list that has from `min` to `max` of them.
  std::vector<Node> items(size_t min, size_t max) const;
  const std::string& string() const;
  /// A string that can stand as a name: it needs no quotes on a command line.
  const std::string& name() const;
  /// A whole number from `min` to `max`.
  uint32_t number(uint32_t min, uint32_t max) const;
  /// A whole number from 0 on.
  uint64_t count() const;
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
  Node(const Json& value, const Json& document) : value_(&value), document_(&document) {}

  std::string describe() const;

  const Json* value_;
  const Json* document_;
};

}  // namespace jxmodel
