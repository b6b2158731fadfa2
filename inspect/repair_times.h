// SPDX-License-Identifier: Apache-2.0
/// @file
/// The times of a repaired file: where recordings that were joined begin, and by how much the times of
/// each move. All streams of a recording move by the same.
#pragma once

#include "inspect/tag.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace zoflv_inspect {

/// Which list of pieces a tag belongs to. Script tags, and those of other types, belong to no stream
/// but move with both.
enum class Lane : uint8_t { AUDIO, VIDEO, SCRIPT };
constexpr size_t LANE_COUNT = 3;
Lane lane_of(const Tag& tag);

/// Coded data with a payload: what has a time of its own. Configurations and the like are written
/// with any time, often 0.
bool is_frame(const Tag& tag);
/// Whether there is anything after the codec's header.
bool has_payload(const Tag& tag);

struct TimeRules {
    /// Times are left as they are. Inner headers then begin no segment: the new file has none, and is
    /// to be seen as the old one is.
    bool keep_times = false;
    bool join_gaps = false; ///< a gap of more than 10 s begins a segment too
};

/// A recording, or what is left of it. Times are those of its frames, ms.
struct Segment {
    int64_t offset = 0; ///< of its first byte in the file
    int64_t min = std::numeric_limits<int64_t>::max();
    int64_t max = std::numeric_limits<int64_t>::min(); ///< below `min` when there is no frame
    int64_t frame = 0;     ///< what the frame at `max` lasts; 0: not known
    uint64_t backward = 0; ///< steps back in one stream that nothing explains
    int64_t shift = 0;     ///< to be added to its times
    int64_t start = 0;     ///< of the shifted times
    int64_t end = 0;       ///< the last frame's shifted time

    bool empty() const { return max < min; }
};

/// A time after all moves.
struct MovedTime {
    size_t segment = 0;
    int64_t ms = 0;
};

class RepairTimes {
public:
    /// So many joined recordings are told apart; the next ones belong to the last.
    static constexpr size_t MOST_SEGMENTS = 10000;

    explicit RepairTimes(const TimeRules& rules);

    // The survey, in the order of the file.
    void inner_header(int64_t offset);
    void see(const Tag& tag); ///< every tag that is kept
    void see_frame(Lane lane, int64_t offset, int64_t time_ms);
    void finish();

    const TimeRules& rules() const { return m_rules; }
    const std::vector<Segment>& segments() const { return m_segments; }
    uint64_t wraps() const { return m_wraps; } ///< times that began again at 2^24 ms, by stream
    bool has_frames() const { return m_any; }
    /// After all frames, with the last one's own duration.
    int64_t end_ms() const { return m_end; }
    /// Whether the moved times of all frames can be written.
    bool in_range() const { return m_in_range; }

    /// Tells moved times, for tags in the order of the file.
    class Cursor {
    public:
        explicit Cursor(const RepairTimes& times) : m_times(times) {}
        MovedTime move(const Tag& tag);

    private:
        const RepairTimes& m_times;
        std::array<size_t, LANE_COUNT> m_at{};
    };

private:
    /// A lane from some tag on.
    struct Piece {
        int64_t offset; ///< of that tag, or what is before it
        size_t segment;
        int64_t add; ///< 2^24 ms for each time that the lane's times began again in the segment
    };
    /// What was seen of a segment in one lane.
    struct Extent {
        int64_t min = std::numeric_limits<int64_t>::max();
        int64_t max = std::numeric_limits<int64_t>::min();
        int64_t frame = 0;
        uint64_t backward = 0;

        void add(int64_t time, std::optional<int64_t> step);
        void add(const Extent& other);
    };
    /// A step that begins a segment if the other stream repeats it.
    struct Candidate {
        int64_t offset;
        int64_t step;
        int64_t from;       ///< the time after it
        int64_t other_from; ///< the other stream's last time then
        Extent extent{};    ///< since then
    };
    struct Stream {
        std::optional<int64_t> last;
        int64_t add = 0;
        Extent extent{};
        std::optional<Candidate> candidate;
    };

    bool wraps_back(int64_t step) const;
    bool may_begin_segment(int64_t step) const;
    bool repeats(const Stream& stream, const Stream& other, int64_t step) const;
    void drop(Stream& stream);
    void drop_stale();
    void close_segment();
    void begin_segment(int64_t offset, int64_t audio, int64_t video);
    void begin_together(size_t index, int64_t offset);
    void add_piece(Lane lane, Piece piece);
    void wrap(size_t index, int64_t offset);
    void forget_tentative();
    void place_segments();

    const TimeRules m_rules;
    std::array<Stream, 2> m_streams; ///< audio, video
    std::array<std::vector<Piece>, LANE_COUNT> m_pieces;
    std::vector<Segment> m_segments;
    size_t m_tentative =
        0; ///< the last segments, begun by one stream as long as it is the only one
    uint64_t m_wraps = 0;
    int64_t m_end = 0;
    bool m_any = false;
    bool m_in_range = true;
};

} // namespace zoflv_inspect
