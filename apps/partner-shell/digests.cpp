#include "digests.h"

#include "jxsdk/rt.hpp"
#include "value.h"

namespace jexapps {
namespace {

jx_status_t readField(const jxrt::JxRtLearn& learn, uint32_t id, DigestFacts* facts) {
  DigestFacts::Field field;
  size_t width = 0;
  jx_status_t status = learn.learnFieldNameGet(id, &field.name);
  if (status == JX_SUCCESS) status = learn.learnFieldSizeGet(id, &width);
  field.width = static_cast<uint32_t>(width);
  facts->fields.push_back(std::move(field));
  return status;
}

jx_status_t readFacts(const jxrt::JxRtLearn& learn, DigestFacts* facts) {
  std::vector<uint32_t> field_ids;
  jx_status_t status = learn.learnNameGet(&facts->name);
  if (status == JX_SUCCESS) status = learn.learnIdGet(&facts->id);
  if (status == JX_SUCCESS) status = learn.learnFieldIdListGet(&field_ids);
  for (const uint32_t id : field_ids) {
    if (status == JX_SUCCESS) status = readField(learn, id, facts);
  }
  return status;
}

jx_status_t readProgramFacts(const jxrt::JxRtInfo& info, const std::string& program,
                             std::vector<DigestFacts>* digests) {
  std::vector<jxrt::JxRtLearn*> found;
  jx_status_t status = info.learnsGet(&found);
  for (const jxrt::JxRtLearn* learn : found) {
    if (status != JX_SUCCESS) break;
    DigestFacts facts;
    facts.program = program;
    status = readFacts(*learn, &facts);
    digests->push_back(std::move(facts));
  }
  return status;
}

}  // namespace

size_t DigestFacts::valueBytes() const {
  size_t bytes = 0;
  for (const Field& field : fields) bytes += bytesOf(field.width);
  return bytes;
}

jx_status_t readDigestFacts(jx_dev_id_t dev_id, std::vector<DigestFacts>* digests) {
  std::vector<std::string> programs;
  const jxrt::JxRtDevMgr& devices = jxrt::JxRtDevMgr::getInstance();
  jx_status_t status = devices.jxRtInfoP4NamesGet(dev_id, &programs);
  std::vector<DigestFacts> found;
  for (const std::string& program : programs) {
    const jxrt::JxRtInfo* info = nullptr;
    if (status == JX_SUCCESS) status = devices.jxRtInfoGet(dev_id, program, &info);
    if (status == JX_SUCCESS) status = readProgramFacts(*info, program, &found);
  }
  if (status == JX_SUCCESS) *digests = std::move(found);
  return status;
}

}  // namespace jexapps
