// SPDX-License-Identifier: Apache-2.0
/// @file
/// The tags of a repaired file, one after the other: what is kept of a walk, with its new times, in its
/// new order.
#pragma once

#include "inspect/repair.h"
#include "inspect/repair_merge.h"
#include "inspect/walker.h"

#include <cstdint>
#include <functional>

namespace zoflv_inspect {

/// The part of a source up to where it was looked at first: a file may grow meanwhile.
class SourcePart : public ByteSource {
public:
    SourcePart(ByteSource& source, int64_t end) : m_source(source), m_end(end) {}

    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        if (offset >= m_end)
            return 0;
        const auto left = static_cast<uint64_t>(m_end - offset);
        return m_source.read_at(offset, buffer, size < left ? size : static_cast<size_t>(left));
    }
    int64_t size() override { return m_end; }

private:
    ByteSource& m_source;
    const int64_t m_end;
};

enum class Fate : uint8_t { KEPT, CUT, EMPTY, EARLY_END };
/// What becomes of a tag for its own sake, which no other tag changes.
/// @param last_video_frame  offset of it; -1: there is none
Fate fate_of(const Tag& tag, int64_t last_video_frame);
/// Whether a tag is a codec's configuration, of a header by number.
bool is_config(const Tag& tag);

/// What came of a run.
struct TagRun {
    std::set<size_t> late;   ///< segments whose streams are too far apart to be merged
    uint64_t moved = 0;      ///< tags that come after ones that they were before
    uint64_t early_ends = 0; ///< dropped
    bool in_range = true;    ///< all times can be written
    bool retimed = false;    ///< a time is another than it was
    bool complete = false;   ///< the source was read to its end
};

/// Gives the tags after the onMetaData tag, in order.
/// @param source  as far as the plan goes
TagRun run_repaired_tags(ByteSource& source, const RepairPlan& plan, const RepairMerge::Sink& sink,
                         const RepairOptions& options);

} // namespace zoflv_inspect
