// Private functions of the Partner's exported interface.
#pragma once

#include <cstdint>
#include <string>

#include "JexPartnerLib.h"

/// The table `tableName` of program `p4Name` on device `dev`; null if the program has no such
/// table. Stops the process if the device has no such program.
const jxrt::JxRtTable* findJxRtTableFromName(uint8_t dev, std::string p4Name,
                                             std::string tableName);

/// Answers a heartbeat.
void sendPing();
