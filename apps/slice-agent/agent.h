// The agent's work behind its command line: the physical device, the control server, the loop.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"

namespace slice_agent {

/// A start that failed over a program description, which the SDK has explained on standard error.
class ProgramError : public std::exception {};

/// Brings the SDK up and adds the physical device with these programs. Throws StartError, or
/// ProgramError.
void addPhysicalDevice(jx_dev_id_t device, const std::vector<std::string>& program_files);

/// Attaches ports to the device, "N=if:NAME" or "N=pcap:IN[,OUT]". Input captures wait until
/// `startCaptures`. Throws StartError.
void attachPorts(jx_dev_id_t device, const std::vector<std::string>& specs);

/// Lets the packets of input captures come in, those of ports that are attached later too.
void startCaptures(jx_dev_id_t device);

/// Lets the device's clock run with the time stamps of captures.
void followCaptureTime();

/// Tables of all programs on the device. Throws StartError.
size_t countTables(jx_dev_id_t device);

/// Serves the control service on `address` ("host:port") until the process ends. Returns the
/// address with the port that was taken. It answers health checks with NOT_SERVING. Throws
/// StartError.
std::string startControlServer(const std::string& address);

/// Starts the agent loop on a thread of its own, which never ends and which no signal but a fatal
/// one reaches. Throws StartError.
void startAgentLoop(jx_dev_id_t device, int32_t timeout_ms);

/// Sends heartbeats on a thread of its own, which never ends; the first after one interval.
/// Throws StartError.
void startHeartbeat(std::chrono::milliseconds interval);

/// How counter updates go about it: `kModel` asks for a second sync of each table behind the first,
/// as software models of the chip need it.
enum class CounterUpdate : uint8_t { kPlain, kModel };

/// Updates the counters that partners have started on a thread of its own, which never ends; the
/// first time after one interval. Throws StartError.
void startCounterUpdate(std::chrono::milliseconds interval, CounterUpdate update);

}  // namespace slice_agent
