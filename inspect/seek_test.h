// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where a track's seeks should land, and where they do.
#pragma once

#include "inspect/frame_matcher.h"
#include "inspect/seek_meter.h"

#include <zoflv_host/extractor.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace zoflv_inspect {

/// In the order in which they are tried; the first one makes the verdict.
enum class SeekMode : uint8_t { PREVIOUS, NEXT, CLOSEST_SYNC, CLOSEST };
constexpr size_t SEEK_MODE_COUNT = 4;
/// "previous", "next", "closest-sync", "closest"
const char* name_of(SeekMode mode);

/// What one seek did.
struct SeekLanding {
    int64_t target_us = 0;
    std::optional<int64_t> ideal_us; ///< DTS of the frame to land on; nothing when there is none
    std::optional<int64_t>
        landed_us; ///< DTS of the first frame after the seek; nothing when none came
    media_status_t status = AMEDIA_OK;
    bool hit = false;
    ReadCost seek{};  ///< of the seek alone
    ReadCost frame{}; ///< of the frame read after it
};

/// All seeks of a track in one mode.
struct SeekTest {
    SeekMode mode = SeekMode::PREVIOUS;
    std::vector<SeekLanding> landings;
    size_t hits() const;
};

/// The frames of a track that a seek can land on, collected from the walk: keyframes of video, and of
/// audio every frame, one in 10 ms at most. Memory: 8 bytes for each.
class SyncPoints {
public:
    explicit SyncPoints(Kind kind) : m_kind(kind) {}

    void add(const ExpectedFrame& frame);
    /// Sorts. After the last frame, and before anything else is asked.
    void finish();

    /// Where the best seek lands; nothing when there is no frame in that direction.
    std::optional<int64_t> ideal_us(SeekMode mode, int64_t target_us) const;
    /// Whether a landing is as good as it must be. "previous" of video: the last keyframe at or before
    /// the target, one of the two before it, or one at most 100 ms late; "next" is the same forward, by
    /// one keyframe; "closest-sync" one of the two on either side. Audio: 1 s early to 100 ms late.
    /// With no frame in the direction, finding nothing is right.
    /// @param landed  the first frame after the seek, if any
    bool hit(SeekMode mode, int64_t target_us, const std::optional<DeliveredFrame>& landed) const;
    /// From the first to the last frame, by time.
    int64_t extent_us() const { return (m_last_ms - m_first_ms) * 1000; }
    /// Whether it is no frame, but a configuration or the like.
    bool is_extra(const DeliveredFrame& frame) const;

    /// Even targets in the first 95 % of the track, each somewhere in its part of it, at whole
    /// milliseconds, as tags have them.
    std::vector<int64_t> targets(int count, uint64_t seed) const;

private:
    /// Time and size: a landing is known by both.
    using Point = std::pair<int32_t, uint32_t>;

    std::optional<int64_t> time_at(size_t index) const;
    size_t first_from(int64_t time_us) const;
    size_t count_to(int64_t time_us) const;
    bool near_sync(SeekMode mode, int64_t target_us, int64_t landed_us) const;

    Kind m_kind;
    std::vector<Point> m_points; ///< video alone
    std::vector<Point> m_extras;
    std::vector<int32_t> m_times; ///< ms, distinct
    bool m_any = false;
    int64_t m_first_ms = 0; ///< of all frames
    int64_t m_last_ms = 0;
};

/// Seeks to each target and looks where that lands.
/// @param track   started
/// @param source  the track's, counts what it costs
/// @param beside  landings of the video beside this audio track, for the same targets; null: none. To
///                begin where the video does is a hit too.
SeekTest run_seeks(zoflv_host::Track& track, const zoflv_host::DataSource& source,
                   const SyncPoints& points, SeekMode mode, const std::vector<int64_t>& targets,
                   const SeekTest* beside = nullptr);

} // namespace zoflv_inspect
