#include "model/notify/learn_message.h"

namespace jxmodel {

LearnLayout::LearnLayout(const Program& program, const Learn& learn) {
  for (const LearnField& field : learn.fields) {
    const uint32_t width = program.fields[field.field].width;
    fields.push_back({field.id, width, bytes});
    bytes += bytesOf(width);
  }
}

const LearnLayout::Field* LearnLayout::find(uint32_t field_id) const {
  return findById(fields, field_id);
}

}  // namespace jxmodel
