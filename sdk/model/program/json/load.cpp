// The front-end for descriptions in JSON: the file, the document, and what stands at its top.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "model/program/json/draft.h"

namespace jxmodel {
namespace {

constexpr size_t kMaxFileSize = 16u << 20;  // bytes

void readFields(const Node& list, Draft* draft) {
  for (const Node& node : list.items(0, kMaxItems)) {
    node.expectObject("a field", {"name", "width"});
    PacketField field;
    field.name = draft->fields.declare(node);
    field.width = node.at("width").number(1, kMaxKeyWidth);
    draft->program.fields.push_back(std::move(field));
  }
}

void readLearnFields(const Node& list, const Draft& draft, Learn* learn) {
  for (const Node& node : list.items(1, kMaxItems)) {
    const uint32_t field = draft.fields.resolve(node);
    for (const LearnField& other : learn->fields) {
      if (other.field == field) {
        node.fail("field " + inQuotes(node.string()) + " is already in the list");
      }
    }
    learn->fields.push_back({static_cast<uint32_t>(learn->fields.size()) + 1, field});
  }
}

void readLearns(const Node& list, Draft* draft) {
  for (const Node& node : list.items(0, kMaxItems)) {
    node.expectObject("a learn object", {"name", "fields"});
    Learn learn;
    learn.id = learnIdAt(draft->program.id, draft->program.learns.size());
    learn.name = draft->learns.declare(node);
    readLearnFields(node.at("fields"), *draft, &learn);
    draft->program.learns.push_back(std::move(learn));
  }
}

Program readProgram(const Node& root) {
  root.expectObject("a program",
                    {"$schema", "name", "id", "fields", "actions", "tables", "learn", "control"});
  if (const auto schema = root.find("$schema")) schema->string();
  Draft draft;
  draft.program.name = root.at("name").name();
  draft.program.id = root.at("id").number(1, kMaxProgramId);
  const Node actions = root.at("actions");
  readFields(root.at("fields"), &draft);
  declareActions(actions, &draft);
  readTables(root.at("tables"), &draft);
  if (const auto learns = root.find("learn")) readLearns(*learns, &draft);
  readActionBodies(actions, &draft);
  readControl(root.at("control"), &draft);
  return std::move(draft.program);
}

// Reads all of `path`; 0, or the errno of what went wrong.
int readFile(const std::string& path, std::string* text) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return errno;
  char chunk[65536];
  int failure = 0;
  while (failure == 0) {
    errno = 0;
    const size_t count = std::fread(chunk, 1, sizeof chunk, file);
    text->append(chunk, count);
    if (std::ferror(file) != 0) failure = errno;
    if (text->size() > kMaxFileSize) failure = EFBIG;
    if (count == 0) break;
  }
  std::fclose(file);
  return failure;
}

}  // namespace

std::shared_ptr<const Program> parseProgramJson(std::string_view text, const std::string& name,
                                                LoadError* error) {
  try {
    const Json document = parseDocument(text);
    return std::make_shared<const Program>(readProgram(Node(document)));
  } catch (const LoadFailure& failure) {
    report(failure, name, error);
    return nullptr;
  }
}

std::shared_ptr<const Program> loadProgramJson(const std::string& path, LoadError* error) {
  std::string text;
  if (const int failure = readFile(path, &text); failure != 0) {
    report({"cannot be read", std::strerror(failure)}, path, error);
    return nullptr;
  }
  return parseProgramJson(text, path, error);
}

}  // namespace jxmodel
