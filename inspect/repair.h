// SPDX-License-Identifier: Apache-2.0
/// @file
/// Repair: a new file from what is left of a damaged one. Media bytes are never changed.
///
///     const RepairPlan plan = plan_repair(source, options);
///     if (plan.error == RepairError::NONE)
///         write_repair(source, plan, sink);
///
/// A plan that is not settled is one of the few whose new file is to be repaired again, at most
/// MOST_ROUNDS times in all.
#pragma once

#include "inspect/byte_source.h"
#include "inspect/repair_metadata.h"
#include "inspect/repair_times.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace zoflv_inspect {

struct RepairOptions {
    TimeRules times{};
    /// Called now and then with the bytes that were worked on, of `plan_repair` or `write_repair`.
    std::function<void(int64_t done)> progress{};
};

constexpr int MOST_ROUNDS = 8;

enum class RepairError : uint8_t {
    NONE,
    READ_FAILED,  ///< the file cannot be read to its end
    NO_FRAMES,    ///< nothing is left to play
    OUT_OF_RANGE, ///< a time would be below 0 or above 2^31 - 1 ms
    CHANGED,      ///< the file is not what it was when the plan was made
    WRITE_FAILED, ///< the sink did not take all
};
/// A sentence without its full stop.
const char* repair_error_text(RepairError error);

/// What is different in the new file.
struct RepairReport {
    // Dropped
    uint64_t cut_tags = 0;
    uint64_t empty_tags = 0; ///< without payload
    uint64_t early_ends = 0; ///< 5-byte ends of sequence with frames after them
    uint64_t inner_headers = 0;
    uint64_t more_metadata = 0; ///< onMetaData after the first
    uint64_t lost_ranges = 0;
    int64_t lost_bytes = 0;
    std::vector<std::string> properties; ///< of the metadata, with why
    // Changed
    bool no_header = false; ///< the file does not begin with a header
    uint8_t old_flags = 0, new_flags = 0;
    uint64_t links = 0;                 ///< wrong or missing PreviousTagSize
    uint64_t stream_ids = 0;            ///< other than 0
    std::array<bool, 2> moved_config{}; ///< audio, video: the configuration was put in front
    uint64_t reordered = 0;             ///< tags that come after ones that they were before
    std::vector<Segment> segments;      ///< the first 1000
    uint64_t wraps = 0;
    // Kept
    uint64_t tags = 0;
    uint64_t steps_back = 0; ///< in times, of one stream or small
    uint64_t not_merged = 0; ///< segments left in the order of the file
    size_t index_entries = 0;
    uint64_t keyframes = 0;             ///< that could have an entry
    int64_t old_size = 0, new_size = 0; ///< bytes
    double duration = 0.0;              ///< seconds

    /// Adds what repairing the new file again changed.
    void go_on(const RepairReport& next);
};

/// A configuration that goes to the front of its stream.
struct LateConfig {
    int64_t offset = -1; ///< of its tag; -1: none
    uint32_t size = 0;   ///< of its body
    uint8_t type_byte = 0;
};

/// Everything that is decided before the first byte is written. Memory: per segment and per entry of
/// the index.
struct RepairPlan {
    explicit RepairPlan(const TimeRules& rules) : times(rules) {}

    RepairError error = RepairError::NONE;
    RepairReport report;

    RepairTimes times;
    std::set<size_t> not_merged;      ///< segments
    bool one_order = false;           ///< nothing is merged: tags are in the order of the file
    std::array<LateConfig, 2> late{}; ///< audio, video
    int64_t metadata_offset = -1;     ///< of the tag that has the old properties
    int64_t last_video_frame = -1;    ///< its offset
    int64_t end = 0;                  ///< the part of the source that was looked at
    uint8_t flags = 0;                ///< of the new header
    std::vector<uint8_t> metadata;    ///< body of the new tag
    int64_t total = 0;                ///< bytes of the new file
    uint64_t fingerprint = 0;         ///< of the places and times of all tags
    bool settled = true;              ///< the new file, repaired again, would stay as it is
};

/// Reads the source twice, up to four times when streams are far apart. Throws std::bad_alloc only.
RepairPlan plan_repair(ByteSource& source, const RepairOptions& options = {});

/// Takes the new file from its first byte on.
/// @return false: no more is wanted
using ByteSink = std::function<bool(const void* bytes, size_t size)>;

/// @param source  the one that was planned for
/// @param plan    without error
RepairError write_repair(ByteSource& source, const RepairPlan& plan, const ByteSink& sink,
                         const RepairOptions& options = {});

} // namespace zoflv_inspect
