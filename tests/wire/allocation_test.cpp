// What the library allocates on the way of an update: nothing on the Partner, and on the agent one
// array for an update with data.
//
// Allocation functions are replaced in this binary and count per thread. Calls of the messaging
// library and of the SDK that the library makes are wrapped (--wrap) and not counted: what they do
// inside is their own.
#include <gtest/gtest.h>
#include <nanomsg/nn.h>
#include <nanomsg/pipeline.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "JexPartnerLibMatchCallback.h"
#include "JexPartnerLibMatchTable.h"
#include "JexPartnerLibSocket.h"
#include "support/raw_socket.h"
#include "support/write_command.h"
#include "wire/recorded_update.h"
#include "wire/scripts.h"

namespace jextest {
namespace {

struct Counters {
  bool counting = false;
  int outside = 0;  // > 0: inside a call that is not the library's
  uint64_t allocated = 0;
  uint64_t freed = 0;
  uint64_t plain = 0;  // malloc and its kin
};
thread_local Counters counters;

bool counts() { return counters.counting && counters.outside == 0; }

/// While it lives, allocations are not the library's.
struct Outside {
  Outside() { ++counters.outside; }
  ~Outside() { --counters.outside; }
};

/// Counts what this thread allocates in library code while it lives.
struct Counting {
  Counting() {
    counters = {};
    counters.counting = true;
  }
  ~Counting() { counters.counting = false; }
};

}  // namespace
}  // namespace jextest

namespace {

void* takeMemory(size_t size) {
  if (jextest::counts()) ++jextest::counters.allocated;
  const jextest::Outside own;
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void giveMemory(void* memory) {
  if (jextest::counts() && memory != nullptr) ++jextest::counters.freed;
  const jextest::Outside own;
  std::free(memory);
}

}  // namespace

void* operator new(size_t size) { return takeMemory(size); }
void* operator new[](size_t size) { return takeMemory(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return takeMemory(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { giveMemory(memory); }
void operator delete[](void* memory) noexcept { giveMemory(memory); }
void operator delete(void* memory, size_t) noexcept { giveMemory(memory); }
void operator delete[](void* memory, size_t) noexcept { giveMemory(memory); }

extern "C" {

// The library is linked statically here, so that each of its calls to malloc comes through these.
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void* __wrap_malloc(size_t size) {
  if (jextest::counts()) ++jextest::counters.plain;
  return __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  if (jextest::counts()) ++jextest::counters.plain;
  return __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, size_t size) {
  if (jextest::counts()) ++jextest::counters.plain;
  return __real_realloc(memory, size);
}

#define OUTSIDE(type, name, parameters, arguments) \
  type __real_##name parameters;                   \
  type __wrap_##name parameters {                  \
    const jextest::Outside call;                   \
    return __real_##name arguments;                \
  }

OUTSIDE(int, nn_send, (int s, const void* buf, size_t len, int flags), (s, buf, len, flags))
OUTSIDE(int, nn_poll, (nn_pollfd * fds, int count, int timeout), (fds, count, timeout))
OUTSIDE(jx_status_t, jx_drv_plcmt_pack_data_size, (const void* data, size_t* size), (data, size))
OUTSIDE(jx_status_t, jx_drv_plcmt_copy_pack, (const void* data, uint8_t* packed), (data, packed))
OUTSIDE(jx_status_t, jx_drv_plcmt_unpack_data_size, (const uint8_t* packed, size_t* size),
        (packed, size))
OUTSIDE(jx_status_t, jx_drv_plcmt_copy_unpack, (const uint8_t* packed, uint8_t* data),
        (packed, data))
OUTSIDE(pipe_plcmt_info*, pipe_create_plcmt_info, (), ())
OUTSIDE(void, pipe_destroy_plcmt_info, (pipe_plcmt_info * info), (info))
OUTSIDE(pipe_status_t, pipe_set_one_plcmt_op_mat_add,
        (pipe_plcmt_info * info, pipe_mat_ent_hdl_t entry, uint32_t pipe, uint32_t priority,
         pipe_sel_grp_hdl_t group, pipe_adt_ent_hdl_t member, const void* data),
        (info, entry, pipe, priority, group, member, data))
OUTSIDE(pipe_status_t, pipe_set_one_plcmt_op_mat_mod,
        (pipe_plcmt_info * info, pipe_mat_ent_hdl_t entry, pipe_sel_grp_hdl_t group,
         pipe_adt_ent_hdl_t member, const void* data),
        (info, entry, group, member, data))
OUTSIDE(pipe_status_t, pipe_set_one_plcmt_op_mat_del,
        (pipe_plcmt_info * info, pipe_mat_ent_hdl_t entry), (info, entry))
OUTSIDE(pipe_status_t, pipe_process_plcmt_info,
        (pipe_sess_hdl_t sess, jx_dev_id_t dev, pipe_tbl_hdl_t table, pipe_plcmt_info* info,
         uint32_t flags, uint32_t* processed),
        (sess, dev, table, info, flags, processed))
}

namespace jextest {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kUpdates = 1000;
#else
constexpr int kUpdates = 10000;
#endif

TEST(Allocations, AreSeenByTheCounters) {
  uint64_t seen = 0;
  {
    const Counting counting;
    ::operator delete[](::operator new[](8));  // as such: an expression may be optimised away
    // Not as malloc: the compiler knows that malloc itself changes no counter.
    void* (*volatile allocate)(size_t) = &std::malloc;
    std::free(allocate(8));
    seen = counters.allocated + counters.plain;
    EXPECT_EQ(counters.freed, 1u);
  }
  EXPECT_EQ(seen, 2u);
}

TEST(Allocations, CapturingAllocatesNothing) {
  RawAgent agent;
  std::atomic<int> received{0};
  std::thread drain([&] {
    while (received < kUpdates && !agent.receive().empty()) ++received;
  });
  PartnerLib::PartnerSocket socket(1);
  socket.socket_ = nn_socket(AF_SP, NN_PUSH);
  ASSERT_GE(nn_connect(socket.socket_, "ipc:///tmp/Partner0"), 0);
  PartnerLib::PartnerMessage message(&socket);

  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  uint64_t allocated = 0;
  listen(device.view(), [&](const Update& update) {
    auto* const params = static_cast<pipe_mat_update_params*>(update.params);
    const Counting counting;
    for (int i = 0; i < kUpdates; ++i) {
      PartnerLib::packMatchCallback(update.target, update.table, PIPE_MAT_UPDATE_ADD, params,
                                    &message);
    }
    allocated = counters.allocated + counters.plain;
  });
  runWrites(TableWriter(device.view()), {"add exact_direct 1 small"});
  drain.join();
  EXPECT_EQ(received, kUpdates);
  EXPECT_EQ(allocated, 0u);
  nn_close(socket.socket_);
}

TEST(Allocations, ReplayAllocatesOneArrayForAnUpdateWithDataAndFreesIt) {
  const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"});
  const SwitchDevice physical(DeviceKind::kPhysical, 0, {"limits"});
  std::vector<std::string> writes = {"add exact_direct 1 small 1"};
  for (uint32_t i = 2; i < 200; ++i) {
    writes.push_back("modify exact_direct 1 small " + std::to_string(i));
  }
  writes.push_back("delete exact_direct 1");
  std::vector<Bytes> messages = messagesOf(device.view(), writes, 1);
  const uint32_t session = physical.view().session().sessHandleGet();
  for (Bytes& message : messages) {
    const bool has_data = u32At(message, 28) != 4;
    uint64_t allocated = 0;
    uint64_t freed = 0;
    {
      const Counting counting;
      PartnerLib::matchTableDeserialize(0, session, message.data() + 16, message.size() - 16);
      allocated = counters.allocated + counters.plain;
      freed = counters.freed;
    }
    ASSERT_EQ(allocated, has_data ? 1u : 0u);
    ASSERT_EQ(freed, allocated);
  }
  EXPECT_EQ(physical.view().dump(), device.view().dump());
}

}  // namespace
}  // namespace jextest
