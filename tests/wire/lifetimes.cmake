# Lifetimes, orders and bounds: what others can see of the library only while a call is under way.
# Functions that it calls are wrapped or replaced.

# jex_wrap(NAME FUNCTION...): each call of FUNCTION comes to __wrap_FUNCTION of the binary.
function(jex_wrap name)
  foreach(function IN LISTS ARGN)
    target_link_options(${name} PRIVATE LINKER:--wrap=${function})
  endforeach()
  # A shared library that calls one of these makes the linker look for the wrapper here.
  set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET default)
endfunction()

set(nanomsg_calls nn_poll nn_send nn_recv nn_freemsg)

jex_wire_test(replay_lifetimes_test replay_lifetimes_test.cpp living_blocks.cpp ${wire_objects})
jex_wire_test(arming_lifetimes_test arming_lifetimes_test.cpp living_blocks.cpp sdk_front.cpp)
jex_wrap(arming_lifetimes_test jx_rt_table_idle_table_attributes_allocate
         jx_rt_table_attributes_set jx_rt_table_attributes_deallocate)
jex_wire_test(registration_order_test registration_order_test.cpp living_blocks.cpp
              nanomsg_calls.cpp notify_frames.cpp)
jex_wrap(registration_order_test ${nanomsg_calls})
jex_wire_test(registration_test registration_test.cpp nanomsg_calls.cpp)
jex_wrap(registration_test ${nanomsg_calls})
jex_wire_test(send_bounds_test send_bounds_test.cpp nanomsg_calls.cpp)
jex_wrap(send_bounds_test ${nanomsg_calls} nanosleep)
jex_wire_test(receiver_shutdown_test receiver_shutdown_test.cpp nanomsg_calls.cpp)
jex_wrap(receiver_shutdown_test ${nanomsg_calls} jx_device_remove pthread_cancel poll sleep
         nanosleep nn_shutdown nn_close nn_term)
jex_wire_test(barrier_stores_test barrier_stores_test.cpp nanomsg_calls.cpp store_order.cpp)
jex_wrap(barrier_stores_test ${nanomsg_calls})
jex_wire_test(counter_order_test counter_order_test.cpp counter_segment.cpp living_blocks.cpp
              nanomsg_calls.cpp)
jex_wrap(counter_order_test ${nanomsg_calls} jx_rt_data_field_get_value)
jex_wire_test(stop_pieces_test stop_pieces_test.cpp)
jex_wire_test(capture_threads_test capture_threads_test.cpp nanomsg_calls.cpp)
jex_wrap(capture_threads_test ${nanomsg_calls})
jex_wire_test(full_names_test full_names_test.cpp counter_segment.cpp nanomsg_calls.cpp
              notify_frames.cpp sdk_front.cpp)
jex_wrap(full_names_test ${nanomsg_calls} jx_rt_info_get)
