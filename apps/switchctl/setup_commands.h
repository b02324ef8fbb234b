// Commands of switchctl that set up a device, show what is set, and run packet tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client.h"
#include "render.h"

namespace switchctl {

/// What has been printed and the exit status.
struct Outcome {
  std::string text;
  int status = 0;
};

/// A packet test on a device of its own (with `place.program`, a file) or else on the server's.
/// Throws stf::Error or CallError where it cannot be run.
Outcome runPacketTest(const std::string& file, const Place& place, Client& client, Format format);

/// A command that sets something up, as words, or a file of such. Throw stf::Error, CallError.
void applyWords(const std::vector<std::string>& words, const Place& place, Client& client);
void applyFile(const std::string& file, const Place& place, Client& client);

/// Registers (meters), or the cells of one. Throw stf::Error, CallError.
std::string showRegisters(const std::string& name, bool non_zero, const Place& place,
                          Client& client, Format format);
std::string showMeters(const std::string& name, bool non_zero, const Place& place, Client& client,
                       Format format);
jx::control::v1::SettingsReply readSettings(const Place& place, Client& client);

/// The bytes of a packet that is written as hexadecimal digits; blanks mean nothing. Empty if it is
/// not written so.
std::string packetBytes(const std::string& digits);

}  // namespace switchctl
