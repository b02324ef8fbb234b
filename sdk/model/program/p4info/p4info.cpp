#include "model/program/p4info/p4info.h"

#include "model/program/load_failure.h"
#include "model/program/p4info/control_view.h"
#include "model/program/p4info/join.h"
#include "model/program/source_file.h"

namespace jxmodel {

bool programFromP4Info(std::string_view text, const std::string& file, UnpackedProgram* out,
                       LoadError* error) {
  try {
    const p4info::Document document(text);
    p4info::ControlView view = p4info::controlView(document);
    p4info::assumeWidths(&view.program);
    view.program.name = programNameOf(file);
    UnpackedProgram made;
    for (p4info::ControlView::TableFacts& facts : view.facts) {
      made.places.push_back(std::move(facts.place));
    }
    made.program = std::move(view.program);
    *out = std::move(made);
    return true;
  } catch (const LoadFailure& failure) {
    fillError(error, file, failure.place, failure.reason);
    return false;
  }
}

bool joinP4Info(std::string_view text, const std::string& file, UnpackedProgram* program,
                LoadError* error) {
  try {
    const p4info::Document document(text);
    UnpackedProgram joined = p4info::join(p4info::controlView(document), *program);
    *program = std::move(joined);
    return true;
  } catch (const LoadFailure& failure) {
    fillError(error, file, failure.place, failure.reason);
    return false;
  }
}

}  // namespace jxmodel
