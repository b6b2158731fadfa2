// SPDX-License-Identifier: Apache-2.0
/// @file
/// Totals over a walk: what a file really has, counted, beside what its metadata claims.
#pragma once

#include "inspect/tag.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zoflv_inspect {

class TagWalker;

/// A value of a tag, and where that tag is.
struct Spot {
    int64_t value = 0;   ///< ms
    int64_t offset = -1; ///< of the tag; -1: there was none
    int64_t dts_ms = 0;  ///< of the tag
};

/// How often a codec was met, and where first.
struct CodecCount {
    Codec codec{};
    uint64_t tags = 0;
    int64_t offset = 0;
};

/// One codec configuration; the same again is counted.
struct ConfigCount {
    uint64_t tags = 0;
    uint64_t hash = 0;  ///< of its bytes
    uint32_t size = 0;  ///< bytes
    int64_t offset = 0; ///< of the first tag that has it
    int64_t dts_ms = 0; ///< of that tag
};

/// Up to N different ones; how many more there were is counted only.
template <typename T, size_t N>
struct Few {
    std::array<T, N> rows{};
    size_t count = 0;    ///< rows in use
    uint64_t others = 0; ///< occurrences of what found no row

    const T* begin() const { return rows.data(); }
    const T* end() const { return rows.data() + count; }
};

/// The distance from each tag's time to the one before it.
struct StepScan {
    uint64_t back = 0;    ///< steps back
    uint64_t repeats = 0; ///< steps of 0
    uint64_t gaps = 0;    ///< steps of more than GAP_MS
    Spot largest_back{};  ///< its value is negative
    Spot largest_gap{};
};

/// The distance from one keyframe to the next.
struct KeyframeScan {
    uint64_t count = 0;
    int64_t first_dts_ms = 0; ///< valid, as the next three, when `count` is not 0
    int64_t last_dts_ms = 0;
    int64_t first_offset = 0;
    int64_t last_offset = 0;
    uint64_t spaces = 0; ///< distances measured: those that are not negative
    int64_t shortest_ms = 0;
    Spot longest{};
    int64_t sum_ms = 0;

    double average_ms() const
    {
        return spaces > 0 ? static_cast<double>(sum_ms) / static_cast<double>(spaces) : 0.0;
    }
};

/// All tags of one type. Times are those of its frames: coded data, with a payload.
struct StreamScan {
    uint64_t tags = 0;
    uint64_t bytes = 0; ///< of the bodies, as far as they are stored
    uint64_t frames = 0;
    uint64_t frame_bytes = 0; ///< their payload
    uint64_t configs = 0;     ///< configuration packets
    uint64_t ends = 0;        ///< ends of sequence
    uint64_t empty = 0;       ///< tags without a payload, but for ends of sequence
    uint64_t filtered = 0;    ///< encrypted or otherwise preprocessed
    uint64_t negative_times = 0;
    int64_t first_offset = -1;  ///< of the first tag; -1: there is none
    uint32_t largest_frame = 0; ///< bytes
    int64_t first_dts_ms = 0; ///< in the order of the file; these are valid when `frames` is not 0
    int64_t last_dts_ms = 0;
    int64_t min_dts_ms = 0;
    int64_t max_dts_ms = 0;
    int64_t min_pts_ms = 0;
    int64_t max_pts_ms = 0;
    int64_t last_step_ms =
        0; ///< the last step forward of at most GAP_MS: what the last frame lasts
    StepScan steps{};
    KeyframeScan keyframes{}; ///< video
    Few<CodecCount, 8> codecs{};
    Few<ConfigCount, 16> configurations{};

    /// Time that the frames cover, the last one's own included.
    int64_t duration_ms() const { return frames > 0 ? max_dts_ms + last_step_ms - min_dts_ms : 0; }
};

/// What the first onMetaData says.
struct Claims {
    bool found = false;
    int64_t offset = 0;               ///< of its tag
    std::optional<double> duration{}; ///< seconds
    std::optional<double> framerate{};
    std::optional<double> filesize{};      ///< bytes
    std::optional<double> videodatarate{}; ///< kbit/s
    std::optional<double> audiodatarate{}; ///< kbit/s
    std::optional<uint32_t> index_entries{};
};

struct Scan {
    static constexpr int64_t GAP_MS = 1000;
    static constexpr size_t LINKS = static_cast<size_t>(Link::OTHER_WRONG) + 1;

    bool has_header = false;
    FileHeader header{}; ///< the first one
    Claims claims{};
    uint64_t inner_headers = 0;
    StreamScan video{};
    StreamScan audio{};
    StreamScan script{};
    uint64_t other_tags = 0; ///< of other types
    uint64_t stream_ids = 0; ///< tags whose stream id is not 0
    std::array<uint64_t, LINKS>
        links{}; ///< tags by what their PreviousTagSize is, but for a cut one
    Few<LostRange, 32> lost{};
    uint64_t lost_ranges = 0;
    int64_t lost_bytes = 0;
    Spot
        furthest_apart{}; ///< largest distance of an audio tag's time from the video tag's before it
    End end{};

    bool has_frames() const { return video.frames > 0 || audio.frames > 0; }
    /// The smallest time of all frames.
    int64_t start_ms() const;
    /// From there to where the last frame ends.
    int64_t duration_ms() const;
};

/// Adds up a walk. Takes the memory of the largest script tag or configuration; the other bodies are
/// not read.
class Scanner {
public:
    /// Takes the walk's next item; `walker` is the one that gave it.
    void see(const Item& item, TagWalker& walker);
    const Scan& scan() const { return m_scan; }

private:
    void see_tag(const Tag& tag, TagWalker& walker);
    void see_frame(const Tag& tag, StreamScan* stream);

    Scan m_scan;
};

} // namespace zoflv_inspect
