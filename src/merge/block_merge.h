// Block merge internals, exposed for tests: the finer merge of one unstable
// region of a story.
#pragma once

#include <optional>
#include <span>
#include <vector>

#include "model/story.h"

namespace inkharbour::MergeEngine {

// A three-way merge inside one region, by merge key: local and external
// insertions are both kept (local ones first where they meet), and blocks
// deleted on one side stay deleted. Returns no value when some base block is
// gone from both sides (removed or changed on both), which is a real
// conflict. An empty list is a valid merge, not a conflict.
std::optional<std::vector<Block>> refineChunk(std::span<const Block> base,
                                              std::span<const Block> ours,
                                              std::span<const Block> theirs);

}  // namespace inkharbour::MergeEngine
