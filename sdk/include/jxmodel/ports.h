/* Ports of the software model's physical devices: what plugs a device into networks and capture
 * files, so that packets go where its tables say. Not part of the switch SDK.
 *
 * Where a port leads is written as in
 *
 *   3=if:veth3               a network interface, both directions
 *   3=pcap:in.pcap,out.pcap  a capture file to read and one to write; either may be left out
 *                            (3=pcap:in.pcap, 3=pcap:,out.pcap)
 *
 * Ports are numbered 0 to 511. Packets run through the first program of the device that has a
 * control flow. All functions may be called from any thread. Common to them: JX_OBJECT_NOT_FOUND,
 * there is no such device or port; JX_NOT_SUPPORTED, the device is a virtual one;
 * JX_INVALID_ARGUMENTS, a null pointer.
 */
#ifndef JXMODEL_PORTS_H
#define JXMODEL_PORTS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What became of the packets of a port. A packet is counted once. Bytes are lengths on the wire,
 *  from the destination address to the end of the payload. */
typedef struct jx_model_port_counters {
  uint64_t packets_in;
  uint64_t bytes_in;
  uint64_t packets_out;
  uint64_t bytes_out;
  uint64_t dropped_in;     /* the port was set down, or the device was too slow */
  uint64_t dropped_out;    /* the port was set down, had no link, or its queue was full */
  uint64_t receive_errors; /* could not be read */
  uint64_t send_errors;    /* refused by the interface or the file */
} jx_model_port_counters_t;

#define JX_MODEL_PORT_TEXT_BYTES 256

/** State of a port at one moment. Texts that are too long are cut. */
typedef struct jx_model_port {
  uint32_t number;
  bool enabled;    /* not set down */
  bool carrier;    /* what the port is plugged into is there and up */
  bool input_left; /* packets of its input capture are still to come */
  char spec[JX_MODEL_PORT_TEXT_BYTES];
  char error[JX_MODEL_PORT_TEXT_BYTES]; /* the last failure, empty if there was none */
  jx_model_port_counters_t counters;
} jx_model_port_t;

/** Attaches a port, "N=if:NAME" or "N=pcap:IN,OUT"; it is up at once. When that fails, `error`
 *  (which may be null) gets a line of at most `error_bytes` bytes with its final 0 that says what
 *  and why. JX_INVALID_ARGUMENTS: not written like a port. JX_ALREADY_EXISTS: the number is taken.
 *  JX_IO_ERROR: the interface or a file cannot be opened, or is another port's. */
JXSDK_API jx_status_t jx_model_port_add(jx_dev_id_t dev_id, const char* spec, char* error,
                                        size_t error_bytes);

/** Closes and removes a port. When it has returned, no packet comes in there any more. */
JXSDK_API jx_status_t jx_model_port_delete(jx_dev_id_t dev_id, uint32_t port);

/** Sets a port up or down. A port that is down drops what comes in and what is sent. */
JXSDK_API jx_status_t jx_model_port_set_enabled(jx_dev_id_t dev_id, uint32_t port, bool enabled);

/** Writes the ports in order of their numbers to `ports`, at most `capacity` of them, and to
 *  *count how many there are. `ports` may be null if `capacity` is 0. */
JXSDK_API jx_status_t jx_model_port_list(jx_dev_id_t dev_id, jx_model_port_t* ports,
                                         uint32_t capacity, uint32_t* count);

/** Lets a frame come in at a port, stamped with the time of the model's clock, and waits until what
 *  it led to has been handed to interfaces and files. The port counts it, and drops it if it is set
 *  down; but none need be attached there. JX_NOT_READY: the device is being removed. */
JXSDK_API jx_status_t jx_model_inject(jx_dev_id_t dev_id, uint32_t port, const uint8_t* frame,
                                      size_t bytes);

/** While held, input captures wait: ports can be attached, and tables filled, before the first
 *  packet comes. Calls do not nest. */
JXSDK_API jx_status_t jx_model_captures_hold(jx_dev_id_t dev_id, bool held);

/** Waits until all input captures that are not held have been read and what they led to has been
 *  written. Interfaces are not considered: they may receive at any time. JX_NOT_READY: `timeout_ms`
 *  passed before. */
JXSDK_API jx_status_t jx_model_ports_wait_idle(jx_dev_id_t dev_id, uint32_t timeout_ms);

#ifdef __cplusplus
}
#endif
#endif
