// P4Info text as it was read: the message, where its objects stand in the file, and what must hold
// before anything is made of it. Failures are LoadFailures.
#pragma once

#include <google/protobuf/text_format.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "jx_p4info.pb.h"

namespace jxmodel::p4info {

/// Kinds of object, by the first byte of their ids.
enum class IdKind : uint8_t {
  kAction = 0x01,
  kTable = 0x02,
  kValueSet = 0x03,
  kControllerHeader = 0x04,
  kProfile = 0x11,
  kCounter = 0x12,
  kDirectCounter = 0x13,
  kMeter = 0x14,
  kDirectMeter = 0x15,
  kRegister = 0x16,
  kDigest = 0x17,
};

class Document {
 public:
  /// Throws if `text` is not P4Info, or an id is of another kind, given twice or refers to nothing.
  explicit Document(std::string_view text);

  const P4Info& info() const { return info_; }
  /// Where the object at `index` of a list of P4Info ("tables") stands: "line 7, column 1".
  std::string placeOf(const char* list, int index) const;

  /// Index of the object with that id in its list; it must be of that kind.
  int indexOf(uint32_t id) const { return objects_.at(id).index; }

 private:
  struct Object {
    IdKind kind;
    int index;
  };

  void parse(std::string_view text);
  template <typename List>
  void addIds(const char* list_name, const char* what, IdKind kind, const List& list);
  void checkReference(const std::string& place, const std::string& subject, const char* what,
                      uint32_t id, IdKind kind) const;
  void checkReferences() const;
  void checkTable(int index) const;

  P4Info info_;
  google::protobuf::TextFormat::ParseInfoTree places_;
  std::map<uint32_t, Object> objects_;  // by id
};

}  // namespace jxmodel::p4info
