// Writes to the tables of programs/limits.json that bring about every update once.
#pragma once

#include <string>
#include <vector>

namespace jextest {

/// An update, the writes that have to come first, and the write that makes it.
struct UpdateScript {
  const char* name;  ///< as in updateLayouts()
  std::vector<std::string> before;
  std::string write;
};

inline const std::vector<UpdateScript>& updateScripts() {
  static const std::vector<UpdateScript> all = {
      {"MatchAdd", {}, "add ternary_direct 1 small 11 77"},
      {"MatchSetDefault", {}, "default exact_direct small 12"},
      {"MatchClearDefault", {"default exact_direct small 12"}, "clear-default exact_direct"},
      {"MatchDelete", {"add exact_direct 1 small 13"}, "delete exact_direct 1"},
      {"MatchModify", {"add exact_direct 1 small 14"}, "modify exact_direct 1 small 15"},
      {"MatchMove", {"add ternary_direct 1 small 16 77"}, "move ternary_direct 1 78"},
      {"MemberAdd", {}, "member-add members 1 small 17"},
      {"MemberDelete", {"member-add members 1 small 17"}, "member-delete members 1"},
      {"MemberModify", {"member-add members 1 small 17"}, "member-modify members 1 small 18"},
      {"GroupCreate",
       {"member-add members 1 small 19", "member-add members 2 small 20"},
       "group-create groups 5 1:1 2:0"},
      {"GroupDestroy", {"group-create groups 5"}, "group-destroy groups 5"},
      {"GroupMemberAdd",
       {"member-add members 1 small 21", "group-create groups 5"},
       "group-add groups 5 1"},
      {"GroupMemberDelete",
       {"member-add members 1 small 22", "group-create groups 5 1:1"},
       "group-remove groups 5 1"},
      {"GroupMemberActivate",
       {"member-add members 1 small 23", "group-create groups 5 1:0"},
       "group-activate groups 5 1"},
      {"GroupMemberDeactivate",
       {"member-add members 1 small 24", "group-create groups 5 1:1"},
       "group-deactivate groups 5 1"},
      {"FallbackSet", {"member-add members 1 small 25"}, "fallback groups 1"},
      {"FallbackClear",
       {"member-add members 1 small 26", "fallback groups 1"},
       "clear-fallback groups"},
  };
  return all;
}

inline const UpdateScript& scriptOf(const std::string& name) {
  for (const UpdateScript& script : updateScripts()) {
    if (script.name == name) return script;
  }
  return updateScripts().at(updateScripts().size());  // throws: no such update
}

}  // namespace jextest
