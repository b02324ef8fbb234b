#include "support/write_command.h"

#include <functional>
#include <map>
#include <sstream>

namespace jextest {
namespace {

/// The words behind the command, with defaults for those that may be left out.
class Words {
 public:
  explicit Words(std::vector<std::string> words) : words_(std::move(words)) {}
  const std::string& text(size_t i) const { return words_.at(i); }
  uint32_t number(size_t i) const {
    return i < words_.size() ? static_cast<uint32_t>(std::stoul(words_[i])) : 0;
  }
  size_t size() const { return words_.size(); }

 private:
  std::vector<std::string> words_;
};

TableWriter::Elements elementsFrom(const Words& words, size_t first) {
  TableWriter::Elements elements;
  for (size_t i = first; i < words.size(); ++i) {
    const std::string& text = words.text(i);
    const size_t colon = text.find(':');
    elements.emplace_back(std::stoul(text.substr(0, colon)), text.substr(colon + 1) == "1");
  }
  return elements;
}

using Write = std::function<jx_status_t(const TableWriter&, const Words&)>;

const std::map<std::string, Write>& writes() {
  using W = TableWriter;
  static const std::map<std::string, Write> all = {
      {"add",
       [](const W& w, const Words& a) {
         return w.add(a.text(0), a.number(1), a.text(2), a.number(3), a.number(4));
       }},
      {"modify",
       [](const W& w, const Words& a) {
         return w.modify(a.text(0), a.number(1), a.text(2), a.number(3));
       }},
      {"refer",
       [](const W& w, const Words& a) {
         return w.addReference(a.text(0), a.number(1), a.text(2), a.number(3));
       }},
      {"rerefer",
       [](const W& w, const Words& a) {
         return w.modifyReference(a.text(0), a.number(1), a.text(2), a.number(3));
       }},
      {"delete", [](const W& w, const Words& a) { return w.remove(a.text(0), a.number(1)); }},
      {"move",
       [](const W& w, const Words& a) { return w.move(a.text(0), a.number(1), a.number(2)); }},
      {"default",
       [](const W& w, const Words& a) { return w.setDefault(a.text(0), a.text(1), a.number(2)); }},
      {"default-refer",
       [](const W& w, const Words& a) {
         return w.setDefaultReference(a.text(0), a.text(1), a.number(2));
       }},
      {"clear-default", [](const W& w, const Words& a) { return w.clearDefault(a.text(0)); }},
      {"member-add",
       [](const W& w, const Words& a) {
         return w.memberAdd(a.text(0), a.number(1), a.text(2), a.number(3));
       }},
      {"member-modify",
       [](const W& w, const Words& a) {
         return w.memberModify(a.text(0), a.number(1), a.text(2), a.number(3));
       }},
      {"member-delete",
       [](const W& w, const Words& a) { return w.memberRemove(a.text(0), a.number(1)); }},
      {"group-create",
       [](const W& w, const Words& a) {
         return w.groupCreate(a.text(0), a.number(1), elementsFrom(a, 2));
       }},
      {"group-destroy",
       [](const W& w, const Words& a) { return w.groupDestroy(a.text(0), a.number(1)); }},
      {"group-add",
       [](const W& w, const Words& a) { return w.groupAdd(a.text(0), a.number(1), a.number(2)); }},
      {"group-remove",
       [](const W& w, const Words& a) {
         return w.groupRemove(a.text(0), a.number(1), a.number(2));
       }},
      {"group-activate",
       [](const W& w, const Words& a) {
         return w.groupActivate(a.text(0), a.number(1), a.number(2));
       }},
      {"group-deactivate",
       [](const W& w, const Words& a) {
         return w.groupDeactivate(a.text(0), a.number(1), a.number(2));
       }},
      {"fallback",
       [](const W& w, const Words& a) { return w.fallbackSet(a.text(0), a.number(1)); }},
      {"clear-fallback", [](const W& w, const Words& a) { return w.fallbackClear(a.text(0)); }},
  };
  return all;
}

}  // namespace

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

bool runWrite(const TableWriter& writer, const std::string& line, jx_status_t* status) {
  std::vector<std::string> words = wordsOf(line);
  if (words.empty()) return false;
  const auto found = writes().find(words[0]);
  if (found == writes().end()) return false;
  words.erase(words.begin());
  *status = found->second(writer, Words(std::move(words)));
  return true;
}

void runWrites(const TableWriter& writer, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    jx_status_t status = JX_INVALID_ARGUMENTS;
    runWrite(writer, line, &status);
    must(status, line.c_str());
  }
}

}  // namespace jextest
