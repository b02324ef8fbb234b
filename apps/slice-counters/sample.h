// Copies of counter values.
#pragma once

#include <vector>

#include "block.h"

namespace slice_counters {

class Segment;

/// Milliseconds of the clock that syncs are stamped with.
uint64_t nowMs();

/// What the blocks of `segment` that are in `wanted` (all of them if it is empty) hold, by table
/// id. Blocks that come or go meanwhile are left out. False if the index of names is damaged or the
/// segment has been cut off.
///
/// Values are copied without a lock, while the SliceAgent may be writing them: each entry until
/// two copies in a row are the same, so that no value is half an old and half a new one, and the
/// whole block until its time stamp stays, so that the values belong to it. Both end after a few
/// attempts. As for every reader of a block, some entries can be of the sync that is under way.
bool readBlocks(const Segment& segment, const std::vector<uint32_t>& wanted,
                std::vector<BlockSample>* samples);

}  // namespace slice_counters
