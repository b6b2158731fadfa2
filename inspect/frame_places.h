// SPDX-License-Identifier: Apache-2.0
/// @file
/// Finds the tag of each frame that a reader delivers, in step with a walk over the file.
#pragma once

#include "inspect/expected.h"
#include "inspect/walker.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace zoflv_inspect {

/// Where a frame comes from.
struct FramePlace {
    int64_t offset = 0; ///< of the tag
    int64_t pts_us = 0;
    bool keyframe = false; ///< video: FrameType 1 or 4
};

/// The frames of one kind, asked for in the order in which they are delivered. Looks some hundred
/// tags ahead, so that it finds its way again where a reader skipped a few.
class FramePlaces {
public:
    /// @param source  outlives this
    /// @param from    offset: frames of tags before it were delivered
    FramePlaces(ByteSource& source, Kind kind, int64_t from = 0)
        : m_walker(source), m_kind(kind), m_from(from), m_rules(kind)
    {}

    /// The first tag, after that of the frame found last, whose frame has this time and size;
    /// nothing when there is none near.
    std::optional<FramePlace> find(int64_t time_us, uint64_t size);
    /// After the last frame: the offset of the first tag whose frame should have been delivered and
    /// was not; nothing when there is none. Configurations need not be.
    std::optional<int64_t> first_missing();

private:
    struct Waiting {
        ExpectedFrame frame;
        int64_t pts_us;
    };

    bool pull();
    void drop_front();

    TagWalker m_walker;
    const Kind m_kind;
    const int64_t m_from;
    FrameRules m_rules;
    std::deque<Waiting> m_waiting; ///< tags after that of the last frame found
    std::optional<int64_t> m_missing;
};

} // namespace zoflv_inspect
