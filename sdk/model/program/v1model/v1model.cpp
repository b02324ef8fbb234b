// The document, and what stands at its top.
#include "model/program/v1model/v1model.h"

#include <memory>
#include <new>

#include "model/program/v1model/draft.h"

namespace jxmodel {
namespace v1model {
namespace {

constexpr uint32_t kMaxLevels = 1u << 16;  // of lists and objects: expressions nest deeply
constexpr uint32_t kMajor = 2, kLastMinor = 24;

void checkVersion(const Node& root) {
  const std::string reads = " is not supported: this loader reads bmv2 JSON 2.0 to 2.24";
  const auto meta = root.findValue("__meta__");
  const auto version = meta ? meta->findValue("version") : std::nullopt;
  if (!version) root.fail("a file without a version" + reads);
  const std::vector<Node> items = version->items(2, 2);
  const uint32_t major = items[0].number(0, UINT32_MAX);
  const uint32_t minor = items[1].number(0, UINT32_MAX);
  if (major == kMajor && minor <= kLastMinor) return;
  version->fail("version " + std::to_string(major) + "." + std::to_string(minor) + reads);
}

void checkArchitecture(const Node& root) {
  for (const char* const member : {"parsers", "deparsers"}) {
    const size_t count = itemsOf(root, member).size();
    if (count == 1) continue;
    root.findValue(member).value_or(root).fail(
        "architecture is not v1model: " + std::to_string(count) + " " + member);
  }
  for (const Node& node : itemsOf(root, "extern_instances")) {
    node.fail("extern " + shown(node.at("name").string()) + " of type " +
              shown(node.at("type").string()) + " has no implementation");
  }
}

std::string stemOf(const std::string& file) {
  std::string stem = file.substr(file.rfind('/') + 1);  // npos + 1 is 0
  const size_t dot = stem.rfind('.');
  return dot == std::string::npos || dot == 0 ? stem : stem.substr(0, dot);
}

void readAll(const Node& root, Draft* draft) {
  if (!root.isObject()) root.fail("must be an object");
  checkVersion(root);
  checkArchitecture(root);
  readHeaders(root, draft);
  readErrors(root, draft);
  readCalculations(root, draft);
  readStateful(root, draft);
  readActions(root, draft);
  readParser(root, draft);
  readPipelines(root, draft);
  readChecksums(root, draft);
  readDeparser(root, draft);
}

}  // namespace

std::string shown(std::string_view name) {
  constexpr size_t kShown = 80;
  if (name.size() <= kShown) return std::string(name);
  return std::string(name.substr(0, kShown)) + "...";
}

std::string Names::declare(const Node& item) {
  const Node node = item.at("name");
  const std::string& name = node.string();
  if (name.empty()) node.fail("a " + std::string(what_) + " needs a name");
  if (!indices_.emplace(name, static_cast<uint32_t>(indices_.size())).second) {
    node.fail(std::string(what_) + " " + shown(name) + " is declared twice");
  }
  return name;
}

std::optional<uint32_t> Names::find(std::string_view name) const {
  const auto found = indices_.find(std::string(name));
  if (found == indices_.end()) return std::nullopt;
  return found->second;
}

uint32_t Names::resolve(const Node& reference) const {
  const auto index = find(reference.string());
  if (!index) {
    reference.fail(std::string(what_) + " " + shown(reference.string()) + " does not exist");
  }
  return *index;
}

void Ids::declare(const Node& item) {
  const Node node = item.at("id");
  const uint32_t id = node.number(0, UINT32_MAX);
  if (!indices_.emplace(id, static_cast<uint32_t>(indices_.size())).second) {
    node.fail(std::string(what_) + " id " + std::to_string(id) + " is given twice");
  }
}

std::optional<uint32_t> Ids::find(uint32_t id) const {
  const auto found = indices_.find(id);
  if (found == indices_.end()) return std::nullopt;
  return found->second;
}

uint32_t Ids::resolve(const Node& reference) const {
  const uint32_t id = reference.number(0, UINT32_MAX);
  const auto index = find(id);
  if (!index) reference.fail(std::string(what_) + " " + std::to_string(id) + " does not exist");
  return *index;
}

std::vector<Node> itemsOf(const Node& root, const char* member) {
  const auto list = root.findValue(member);
  return list ? itemsOf(*list) : std::vector<Node>{};
}

std::vector<Node> itemsOf(const Node& list) { return list.items(0, kMaxItems); }

SourcePlace readSource(const Node& item) {
  const auto info = item.findValue("source_info");
  SourcePlace place;
  if (!info || !info->isObject()) return place;
  const auto file = info->find("filename");
  const auto line = info->find("line");
  const auto fragment = info->find("source_fragment");
  if (file && file->isString()) place.file = file->string();
  if (line && line->isUnsigned()) place.line = line->number(0, UINT32_MAX);
  if (fragment && fragment->isString()) place.fragment = fragment->string();
  return place;
}

}  // namespace v1model

bool looksLikeV1model(std::string_view text) {
  return text.find("\"__meta__\"") != std::string_view::npos ||
         text.find("\"pipelines\"") != std::string_view::npos;
}

bool programFromV1model(std::string_view text, const std::string& file, UnpackedProgram* out,
                        LoadError* error, std::vector<std::string>* notices) {
  try {
    if (text.size() > kMaxV1modelBytes) {
      throw LoadFailure{"",
                        "the file has more than " + std::to_string(kMaxV1modelBytes) + " bytes"};
    }
    const Json document = parseDocument(text, v1model::kMaxLevels);
    v1model::Draft draft;
    draft.out.program.name = v1model::stemOf(file);
    v1model::readAll(Node(document), &draft);
    draft.out.program.machine = std::make_shared<const Machine>(std::move(draft.machine));
    *out = std::move(draft.out);
    if (notices != nullptr) *notices = std::move(draft.notices);
    return true;
  } catch (const LoadFailure& failure) {
    report(failure, file, error);
    return false;
  }
}

}  // namespace jxmodel
