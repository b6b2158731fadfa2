// SPDX-License-Identifier: Apache-2.0
/// @file
/// The order of a repaired file's tags: those of the two streams by time, each stream's in its own.
#pragma once

#include "inspect/repair_times.h"
#include "inspect/tag.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <set>

namespace zoflv_inspect {

/// A tag of the repaired file.
struct OutTag {
    int64_t from = 0;  ///< offset of its body in the damaged file
    uint32_t size = 0; ///< of the body
    int32_t time = 0;  ///< ms
    uint8_t type_byte = 0;
    bool frame = false;
    bool keyframe = false; ///< of video
    uint8_t queue = 0;     ///< 0 audio, 1 video, each with the script tags after its own

    uint8_t type() const { return type_byte & 0x1F; }
    Lane lane() const { return in_stream() ? static_cast<Lane>(queue) : Lane::SCRIPT; }
    bool in_stream() const { return type() == TAG_AUDIO || type() == TAG_VIDEO; }

    // What it is ordered by. Tags of later segments come later.
    size_t segment = 0;
    int64_t key = 0;
    uint64_t number = 0; ///< in the order of the damaged file
};

/// What tags are ordered by: frames by their times. What else there is stays after the frame that it is
/// after.
class OrderKeys {
public:
    /// Sets segment and key of the next tag of its queue.
    /// @param start  of the segment, ms
    void set(size_t segment, int64_t start, OutTag* tag);

private:
    struct Last {
        bool any = false;
        size_t segment = 0;
        int64_t key = 0;
    };

    std::array<Last, 2> m_last{};
};

/// Merges the two streams by key, equal ones in the order of the file, each stream in its own order.
/// Holds tags, without their bodies, until the other stream's next one is known, or until those held
/// have MERGE_WINDOW bytes.
class RepairMerge {
public:
    static constexpr size_t MERGE_WINDOW = 8 * 1024 * 1024;
    using Sink = std::function<void(const OutTag&)>;

    explicit RepairMerge(Sink sink) : m_sink(std::move(sink)) {}

    void add(const OutTag& tag);
    /// Gives all that is held.
    void finish();

    /// Segments in which a tag came after tags that belong after it had to be given.
    const std::set<size_t>& late() const { return m_late; }
    uint64_t moved() const { return m_moved; } ///< tags that others of the file were put before

private:
    void give(size_t queue);

    const Sink m_sink;
    std::array<std::deque<OutTag>, 2> m_queues;
    std::array<OutTag, 2> m_forced{}; ///< the last in order of those given before their time
    std::array<bool, 2> m_any_forced{};
    size_t m_held = 0;
    uint64_t m_next = 0; ///< the highest number given so far, and one
    uint64_t m_moved = 0;
    std::set<size_t> m_late;
};

} // namespace zoflv_inspect
