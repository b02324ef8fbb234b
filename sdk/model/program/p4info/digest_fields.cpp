// Types of digests, down to the bits.
#include <algorithm>

#include "model/program/layout.h"
#include "model/program/load_failure.h"
#include "model/program/p4info/control_view.h"

namespace jxmodel::p4info {
namespace {

constexpr int kMaxTypeDepth = 32;
constexpr int kMaxStackSize = 1024;

class TypeWalk {
 public:
  TypeWalk(const TypeInfo& types, std::string place, std::string subject)
      : types_(types), place_(std::move(place)), subject_(std::move(subject)) {}

  std::vector<DigestField> fieldsOf(const TypeSpec& type) {
    add(type, "", 0);
    return std::move(fields_);
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw LoadFailure{place_, subject_ + ": " + reason};
  }

  void append(const std::string& name, int width) {
    if (width < 0) fail("field " + name + " has " + std::to_string(width) + " bits");
    if (fields_.size() == kMaxItems) fail("its type has too many fields");
    fields_.push_back({name.empty() ? "f0" : name, static_cast<uint32_t>(width)});
  }

  static std::string inside(const std::string& outer, const std::string& member) {
    return outer.empty() ? member : outer + "." + member;
  }

  template <typename List>
  const auto& named(const List& list, const char* what, const std::string& name) const {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const auto& entry) { return entry.key() == name; });
    if (found == list.end()) fail(std::string("there is no ") + what + " " + name);
    return found->value();
  }

  void addMembers(const MemberList& list, const std::string& name, int depth) {
    for (const auto& member : list.members()) {
      add(member.type_spec(), inside(name, member.name()), depth);
    }
  }

  void addUnion(const std::string& type, const std::string& name, int depth) {
    for (const auto& member : named(types_.header_unions(), "header union", type).members()) {
      addMembers(named(types_.headers(), "header", member.header().name()),
                 inside(name, member.name()), depth);
    }
  }

  void addStack(const HeaderStackSpec& stack, const std::string& name, int depth) {
    if (stack.size() < 0 || stack.size() > kMaxStackSize) {
      fail("a header stack of " + std::to_string(stack.size()) + " elements");
    }
    for (int i = 0; i < stack.size(); ++i) {
      const std::string element = name + "[" + std::to_string(i) + "]";
      if (stack.has_header_union()) {
        addUnion(stack.header_union().name(), element, depth);
      } else {
        addMembers(named(types_.headers(), "header", stack.header().name()), element, depth);
      }
    }
  }

  void addNewType(const NewTypeSpec& type, const std::string& name, int depth) {
    if (type.has_translated_type()) return append(name, type.translated_type().sdn_bitwidth());
    add(type.original_type(), name, depth);
  }

  void addBits(const BitstringSpec& bits, const std::string& name) {
    if (bits.has_varbit()) return append(name, bits.varbit().max_bitwidth());
    append(name, bits.has_int_() ? bits.int_().bitwidth() : bits.bit().bitwidth());
  }

  void add(const TypeSpec& type, const std::string& name, int depth) {
    if (++depth > kMaxTypeDepth) fail("its type is nested too deep");
    if (type.has_bitstring()) return addBits(type.bitstring(), name);
    if (type.has_bit()) return append(name, type.bit().bitwidth());
    if (type.has_int_()) return append(name, type.int_().bitwidth());
    if (type.has_varbit()) return append(name, type.varbit().max_bitwidth());
    if (type.has_bool_()) return append(name, 1);
    if (type.has_enum_() || type.has_error()) return append(name, 0);
    if (type.has_serializable_enum()) {
      return append(
          name, named(types_.serializable_enums(), "enumeration", type.serializable_enum().name())
                    .underlying_type()
                    .bitwidth());
    }
    if (type.has_new_type()) {
      return addNewType(named(types_.new_types(), "type", type.new_type().name()), name, depth);
    }
    if (type.has_struct_()) {
      return addMembers(named(types_.structs(), "struct", type.struct_().name()), name, depth);
    }
    if (type.has_header()) {
      return addMembers(named(types_.headers(), "header", type.header().name()), name, depth);
    }
    if (type.has_header_union()) return addUnion(type.header_union().name(), name, depth);
    if (type.has_header_stack()) return addStack(type.header_stack(), name, depth);
    if (type.has_header_union_stack()) return addStack(type.header_union_stack(), name, depth);
    if (!type.has_tuple()) fail("a type of a kind that is not known");
    int position = 0;
    for (const TypeSpec& member : type.tuple().members()) {
      add(member, inside(name, "f" + std::to_string(position++)), depth);
    }
  }

  const TypeInfo& types_;
  std::string place_;
  std::string subject_;
  std::vector<DigestField> fields_;
};

}  // namespace

std::vector<DigestField> digestFields(const Document& document, int digest) {
  const Digest& described = document.info().digests(digest);
  TypeWalk walk(document.info().type_info(), document.placeOf("digests", digest),
                "P4Info digest " + described.preamble().name());
  return walk.fieldsOf(described.type_spec());
}

}  // namespace jxmodel::p4info
