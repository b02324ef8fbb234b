// Handles of the C face: each is the address of the object that it stands for; a key's is that of
// the word in it that names an entry.
#pragma once

#include "jxsdk/rt.hpp"
#include "model/runtime/rt_key.h"

namespace jxmodel {

template <typename Object, typename Handle>
const Object* objectOf(const Handle* handle) {
  return reinterpret_cast<const Object*>(handle);
}

template <typename Object, typename Handle>
Object* objectOf(Handle* handle) {
  return reinterpret_cast<Object*>(handle);
}

inline const jxrt::JxRtInfo* object(const jx_rt_info_hdl* handle) {
  return objectOf<jxrt::JxRtInfo>(handle);
}
inline const jxrt::JxRtTable* object(const jx_rt_table_hdl* handle) {
  return objectOf<jxrt::JxRtTable>(handle);
}
// Keys are made by tables alone.
inline jxrt::JxRtTableKey* object(jx_rt_table_key_hdl* handle) {
  return static_cast<RtTableKey*>(objectOf<KeyFace>(handle));
}
inline const jxrt::JxRtTableKey* object(const jx_rt_table_key_hdl* handle) {
  return static_cast<const RtTableKey*>(objectOf<KeyFace>(handle));
}
inline jxrt::JxRtTableData* object(jx_rt_table_data_hdl* handle) {
  return objectOf<jxrt::JxRtTableData>(handle);
}
inline const jxrt::JxRtTableData* object(const jx_rt_table_data_hdl* handle) {
  return objectOf<jxrt::JxRtTableData>(handle);
}
inline const jxrt::JxRtSession* object(const jx_rt_session_hdl* handle) {
  return objectOf<jxrt::JxRtSession>(handle);
}
inline jxrt::JxRtTableAttributes* object(jx_rt_table_attributes_hdl* handle) {
  return objectOf<jxrt::JxRtTableAttributes>(handle);
}
inline const jxrt::JxRtTableAttributes* object(const jx_rt_table_attributes_hdl* handle) {
  return objectOf<jxrt::JxRtTableAttributes>(handle);
}
inline jxrt::JxRtTableOperations* object(jx_rt_table_operations_hdl* handle) {
  return objectOf<jxrt::JxRtTableOperations>(handle);
}
inline const jxrt::JxRtTableOperations* object(const jx_rt_table_operations_hdl* handle) {
  return objectOf<jxrt::JxRtTableOperations>(handle);
}

template <typename Handle, typename Object>
Handle* handleOf(Object* object) {
  return reinterpret_cast<Handle*>(object);
}
template <>
inline jx_rt_table_key_hdl* handleOf(jxrt::JxRtTableKey* key) {
  return reinterpret_cast<jx_rt_table_key_hdl*>(
      static_cast<KeyFace*>(static_cast<RtTableKey*>(key)));
}
template <>
inline const jx_rt_table_key_hdl* handleOf(const jxrt::JxRtTableKey* key) {
  return handleOf<jx_rt_table_key_hdl>(const_cast<jxrt::JxRtTableKey*>(key));
}

template <typename... Pointers>
bool anyNull(const Pointers*... pointers) {
  return (... || (pointers == nullptr));
}

/// Hands an object that was allocated through the C++ face out through the C face.
template <typename Object, typename Handle, typename Allocate>
jx_status_t allocateHandle(Handle** handle, const Allocate& allocate) {
  std::unique_ptr<Object> made;
  const jx_status_t status = allocate(&made);
  if (status == JX_SUCCESS) *handle = handleOf<Handle>(made.release());
  return status;
}

/// Ends an object that the C face handed out.
template <typename Handle>
jx_status_t deallocateHandle(Handle* handle) {
  if (handle == nullptr) return JX_INVALID_ARGUMENTS;
  delete object(handle);
  return JX_SUCCESS;
}

}  // namespace jxmodel
