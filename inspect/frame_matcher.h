// SPDX-License-Identifier: Apache-2.0
/// @file
/// Holds the frames that a track delivers against those that it should, in step with the walk.
#pragma once

#include "inspect/expected.h"

#include <cstdint>
#include <deque>
#include <optional>

namespace zoflv_inspect {

struct DeliveredFrame {
    int64_t time_us = 0;
    uint64_t size = 0;
};

/// A part of the file in which frames went missing, or wrong ones came: from the tag of the last
/// good frame, 0 when there was none, to the end of the first missing one's.
struct FrameGap {
    int64_t from = 0;
    int64_t to = 0;     ///< INT64_MAX: only the end of the file
    int64_t dts_ms = 0; ///< of the first missing frame
};

/// What a track delivered, counted.
struct FrameCount {
    uint64_t expected = 0;
    uint64_t delivered = 0; ///< of those expected
    uint64_t missing = 0;   ///< expected, and not delivered though a later one was
    uint64_t unread = 0;    ///< expected after the last one that was delivered
    uint64_t foreign = 0;   ///< delivered, and of no tag: false frames
    bool gave_up = false;   ///< so many foreign frames that the rest was not compared
    std::optional<FrameGap>
        first_gap;                   ///< the first missing or foreign frame, with a good one later
    std::optional<FrameGap> end_gap; ///< the end of reading, when frames are unread

    /// All that was expected came, in order, and nothing else.
    bool complete() const { return missing == 0 && unread == 0 && foreign == 0; }
};

/// Frames are the same when time, size and codec are: a codec that changes in the middle of a track
/// is delivered as if it were the first one. Looks some hundred tags ahead, so that it finds its way
/// again where a reader skipped a few.
class FrameMatcher {
public:
    /// The next tag of the file.
    void expect(const ExpectedFrame& frame);
    /// Whether a frame is needed before the next tag.
    bool wants() const
    {
        return !m_ended && !m_pending && (m_counting > 0 || m_waiting.size() > MANY_WAITING);
    }
    /// The next frame of the track; empty ones are ignored.
    void deliver(const DeliveredFrame& frame);
    /// No more frames; tags may follow.
    void end_of_frames() { m_ended = true; }
    /// No more tags and no more frames.
    /// @param more  frames that count too and cannot have come
    void finish(uint64_t more = 0);

    const FrameCount& count() const { return m_count; }

private:
    static constexpr size_t MANY_WAITING = 64; ///< configurations alone are not waited for at once

    bool same(const ExpectedFrame& expected, const DeliveredFrame& frame) const;
    void match(size_t index);
    void drop_pending();
    void note_gap(const ExpectedFrame& first, int64_t to);

    FrameCount m_count;
    std::deque<ExpectedFrame> m_waiting;     ///< expected since the last match
    size_t m_counting = 0;                   ///< those of them that count
    std::optional<DeliveredFrame> m_pending; ///< matches none of them so far
    std::optional<Codec> m_codec;            ///< of the first match
    int64_t m_last = 0;                      ///< offset of the last match
    std::optional<ExpectedFrame> m_unread;   ///< the first after the end of the frames
    bool m_strange = false;                  ///< foreign frames since the last match
    bool m_ended = false;
};

} // namespace zoflv_inspect
