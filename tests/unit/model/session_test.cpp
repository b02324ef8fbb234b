// Sessions and their handles.
#include <gtest/gtest.h>

#include <set>

#include "jxsdk/rt.hpp"

namespace {

using jxrt::JxRtSession;

TEST(Session, IsFoundByItsHandleAsLongAsItLives) {
  auto session = JxRtSession::sessionCreate();
  ASSERT_NE(session, nullptr);
  const uint32_t handle = session->sessHandleGet();
  EXPECT_NE(handle, 0U);
  EXPECT_EQ(JxRtSession::sessionInstantiate(handle, 0), session->cHandle());
  EXPECT_EQ(JxRtSession::sessionInstantiate(handle, 1), nullptr);
  EXPECT_EQ(JxRtSession::fromHandle(session->cHandle()), session.get());
  // C callers pass the handle where a function takes the object by reference.
  EXPECT_EQ(static_cast<const void*>(session->cHandle()), static_cast<const void*>(session.get()));
  EXPECT_EQ(jx_rt_session_pipe_handle_get(session->cHandle()), handle);
  session.reset();
  EXPECT_EQ(JxRtSession::sessionInstantiate(handle, 0), nullptr);
  EXPECT_EQ(JxRtSession::sessionInstantiate(0, 0), nullptr);
  EXPECT_EQ(JxRtSession::sessionInstantiate(0xFFFFFFFF, 0), nullptr);
}

TEST(Session, LivesThroughTheCFaceUntilItIsDestroyed) {
  jx_rt_session_hdl* session = nullptr;
  ASSERT_EQ(jx_rt_session_create(&session), JX_SUCCESS);
  const uint32_t handle = jx_rt_session_pipe_handle_get(session);
  EXPECT_EQ(JxRtSession::sessionInstantiate(handle, 0), session);
  EXPECT_EQ(jx_rt_session_destroy(session), JX_SUCCESS);
  EXPECT_EQ(JxRtSession::sessionInstantiate(handle, 0), nullptr);
  EXPECT_EQ(jx_rt_session_destroy(nullptr), JX_INVALID_ARGUMENTS);
  // A session that the C++ face owns is not the C face's to destroy.
  const auto owned = JxRtSession::sessionCreate();
  EXPECT_EQ(jx_rt_session_destroy(owned->cHandle()), JX_SESSION_NOT_FOUND);
}

TEST(Session, ThereAreSoMany) {
  std::set<std::shared_ptr<JxRtSession>> all;
  std::set<uint32_t> handles;
  while (auto session = JxRtSession::sessionCreate()) {
    handles.insert(session->sessHandleGet());
    all.insert(std::move(session));
  }
  EXPECT_EQ(all.size(), 1024U);
  EXPECT_EQ(handles.size(), 1024U);
  jx_rt_session_hdl* session = nullptr;
  EXPECT_EQ(jx_rt_session_create(&session), JX_MAX_SESSIONS_EXCEEDED);
  EXPECT_EQ(session, nullptr);
  all.erase(all.begin());
  EXPECT_NE(JxRtSession::sessionCreate(), nullptr);
}

TEST(ErrorText, IsThatOfTheStatus) {
  const auto text = [](jx_status_t status) {
    const char* found = nullptr;
    jx_rt_err_str(status, &found);
    return std::string(found);
  };
  EXPECT_EQ(text(JX_SUCCESS), "Success");
  EXPECT_EQ(text(JX_TRY_AGAIN), "Resource temporarily not available, try again later");
  EXPECT_EQ(text(JX_ACTION_DATA_REFERENCED),
            "Action data entry is being referenced by match entries");
  EXPECT_EQ(text(JX_HW_ENTRY_NOT_FOUND), "Hardware entry not found");
  EXPECT_EQ(text(JX_STATUS_COUNT), "Unknown error");
  EXPECT_EQ(text(-1), "Unknown error");
}

}  // namespace
