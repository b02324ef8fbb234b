// What switchctl prints about settings: as render.h.
#pragma once

#include <string>

#include "render.h"
#include "stf_run.h"
#include "switch.pb.h"

namespace switchctl {

std::string renderRegisters(const jx::control::v1::ProgramDescription& program, Format format);
std::string renderMeters(const jx::control::v1::ProgramDescription& program, Format format);
/// Cells from index `first` on.
std::string renderCells(const jx::control::v1::ReadCellsReply& reply, bool counts_bytes,
                        uint32_t first, bool non_zero, Format format);
std::string renderValueSets(const jx::control::v1::SettingsReply& reply, Format format);
std::string renderMulticast(const jx::control::v1::SettingsReply& reply, Format format);
std::string renderClones(const jx::control::v1::SettingsReply& reply, Format format);
/// What was read, then what differed; a line where all is as expected.
std::string renderRun(const std::string& file, const stf::Run& run, Format format);

}  // namespace switchctl
