// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_times.h"

#include <algorithm>
#include <cstdlib>

namespace zoflv_inspect {

namespace {

constexpr int64_t WRAP_MS = int64_t{1} << 24; // times without their highest byte
constexpr int64_t WRAP_SLACK_MS = 60 * 1000;  // a frame may be missing there, or many
constexpr int64_t LEAST_RESET_MS = 1000;      // less is a writer's jitter
constexpr int64_t LEAST_GAP_MS = 10 * 1000;
constexpr int64_t SAME_STEP_MS = 1000;       // between the streams: their last frames differ
constexpr int64_t SAME_PLACE_MS = 10 * 1000; // how far apart they may be interleaved
constexpr int64_t LONGEST_FRAME_MS = 1000;   // more is a pause
constexpr int64_t USUAL_FRAME_MS = 40;       // where no frame tells
constexpr int64_t LARGEST_TIME = INT32_MAX;

} // namespace

Lane lane_of(const Tag& tag)
{
    return tag.audio() ? Lane::AUDIO : tag.video() ? Lane::VIDEO : Lane::SCRIPT;
}

bool has_payload(const Tag& tag)
{
    // VP6's adjustment byte is part of the frame.
    const bool typed = tag.body.enhanced || tag.body.packet_type >= 0;
    return tag.body.known && tag.stored > (typed ? tag.body.payload : 1);
}

bool is_frame(const Tag& tag)
{
    return tag.body.packet == Packet::FRAME && has_payload(tag);
}

void RepairTimes::Extent::add(int64_t time, std::optional<int64_t> step)
{
    min = std::min(min, time);
    max = std::max(max, time);
    if (step && *step < 0)
        ++backward;
    if (step && *step > 0 && *step <= LONGEST_FRAME_MS)
        frame = *step;
}

void RepairTimes::Extent::add(const Extent& other)
{
    min = std::min(min, other.min);
    max = std::max(max, other.max);
    backward += other.backward;
    if (other.frame > 0)
        frame = other.frame;
}

RepairTimes::RepairTimes(const TimeRules& rules) : m_rules(rules), m_segments(1)
{
    for (auto& pieces : m_pieces)
        pieces.push_back({0, 0, 0});
}

bool RepairTimes::wraps_back(int64_t step) const
{
    return !m_rules.keep_times && std::abs(step + WRAP_MS) <= WRAP_SLACK_MS;
}

bool RepairTimes::may_begin_segment(int64_t step) const
{
    return step < -LEAST_RESET_MS ||
           (m_rules.join_gaps && !m_rules.keep_times && step > LEAST_GAP_MS);
}

// Whether a step is the other stream's, which came shortly before.
bool RepairTimes::repeats(const Stream& stream, const Stream& other, int64_t step) const
{
    const auto& candidate = other.candidate;
    return candidate && std::abs(candidate->step - step) <= SAME_STEP_MS &&
           *stream.last - candidate->other_from <= SAME_PLACE_MS;
}

// The candidate was a step of that stream alone, which stays.
void RepairTimes::drop(Stream& stream)
{
    if (!stream.candidate)
        return;
    stream.extent.add(stream.candidate->extent);
    if (stream.candidate->step < 0)
        ++stream.extent.backward;
    stream.candidate.reset();
}

void RepairTimes::drop_stale()
{
    for (size_t i = 0; i < m_streams.size(); ++i) {
        Stream& stream = m_streams[i];
        const Stream& other = m_streams[1 - i];
        const auto& candidate = stream.candidate;
        if (candidate && (*stream.last - candidate->from > SAME_PLACE_MS ||
                          (other.last && *other.last - candidate->other_from > SAME_PLACE_MS)))
            drop(stream);
    }
}

// Adds what was seen of the streams to the last segment.
void RepairTimes::close_segment()
{
    Segment& segment = m_segments.back();
    for (Stream& stream : m_streams) {
        const Extent& extent = stream.extent;
        segment.backward += extent.backward;
        segment.min = std::min(segment.min, extent.min);
        if (extent.max > segment.max || (extent.max == segment.max && segment.frame == 0))
            segment.frame = extent.frame;
        segment.max = std::max(segment.max, extent.max);
        stream.extent = {};
    }
}

// @param audio, video  the first tag of it in each stream, or what is before that
void RepairTimes::begin_segment(int64_t offset, int64_t audio, int64_t video)
{
    close_segment();
    const size_t segment = m_segments.size();
    m_segments.emplace_back().offset = offset;
    const int64_t offsets[LANE_COUNT] = {audio, video, offset};
    for (size_t i = 0; i < LANE_COUNT; ++i)
        add_piece(static_cast<Lane>(i), {offsets[i], segment, 0});
    for (Stream& stream : m_streams)
        stream.add = 0;
}

void RepairTimes::add_piece(Lane lane, Piece piece)
{
    auto& pieces = m_pieces[static_cast<size_t>(lane)];
    piece.offset = std::max(piece.offset, pieces.back().offset);
    pieces.push_back(piece);
}

// Times began again at 2^24: the stream's go on, and the script tags' with the first stream's.
void RepairTimes::wrap(size_t index, int64_t offset)
{
    Stream& stream = m_streams[index];
    ++m_wraps;
    drop(stream);
    stream.add += WRAP_MS;
    const Piece piece{offset, m_segments.size() - 1, stream.add};
    add_piece(static_cast<Lane>(index), piece);
    const Piece& script = m_pieces[static_cast<size_t>(Lane::SCRIPT)].back();
    if (script.segment != piece.segment || script.add < piece.add)
        add_piece(Lane::SCRIPT, piece);
}

// Both streams step back, or over a gap: the other one did at its candidate, this one does now.
void RepairTimes::begin_together(size_t index, int64_t offset)
{
    Stream& other = m_streams[1 - index];
    Candidate from = *other.candidate;
    other.candidate.reset();
    drop(m_streams[index]);
    const int64_t other_add = other.add;
    if (index == static_cast<size_t>(Lane::AUDIO))
        begin_segment(from.offset, offset, from.offset);
    else
        begin_segment(from.offset, from.offset, offset);
    from.extent.min -= other_add;
    from.extent.max -= other_add;
    *other.last -= other_add;
    other.extent = from.extent;
}

// Segments that one stream began are none once there is another one, which did not go along.
void RepairTimes::forget_tentative()
{
    if (m_tentative == 0)
        return;
    close_segment();
    const size_t first = m_segments.size() - m_tentative; // of those to go
    Segment& kept = m_segments[first - 1];
    for (size_t i = first; i < m_segments.size(); ++i) {
        kept.min = std::min(kept.min, m_segments[i].min);
        kept.max = std::max(kept.max, m_segments[i].max);
        kept.backward += m_segments[i].backward + 1;
    }
    kept.frame = m_segments.back().frame;
    m_segments.resize(first);
    for (auto& pieces : m_pieces) {
        const auto forgotten = [&](const Piece& piece) { return piece.segment >= first; };
        pieces.erase(std::remove_if(pieces.begin(), pieces.end(), forgotten), pieces.end());
    }
    for (size_t i = 0; i < m_streams.size(); ++i)
        m_streams[i].add = m_pieces[i].back().add;
    m_tentative = 0;
}

void RepairTimes::inner_header(int64_t offset)
{
    if (m_rules.keep_times || m_segments.size() >= MOST_SEGMENTS)
        return;
    for (Stream& stream : m_streams) {
        drop(stream);
        stream.last.reset();
    }
    m_tentative = 0;
    begin_segment(offset, offset, offset);
}

void RepairTimes::see(const Tag& tag)
{
    if (is_frame(tag))
        see_frame(lane_of(tag), tag.offset, tag.dts_ms());
}

void RepairTimes::see_frame(Lane lane, int64_t offset, int64_t time_ms)
{
    const auto index = static_cast<size_t>(lane);
    Stream& stream = m_streams[index];
    Stream& other = m_streams[1 - index];
    m_any = true;
    if (!stream.last)
        forget_tentative();

    int64_t time = time_ms + stream.add;
    std::optional<int64_t> step;
    if (stream.last)
        step = time - *stream.last;
    if (step && wraps_back(*step)) {
        wrap(index, offset);
        time = time_ms + stream.add;
        step = time - *stream.last;
    } else if (step && may_begin_segment(*step) && m_segments.size() < MOST_SEGMENTS) {
        if (repeats(stream, other, *step)) {
            begin_together(index, offset);
            time = time_ms;
        } else if (!other.last) { // the only stream, as far as is known
            begin_segment(offset, offset, offset);
            ++m_tentative;
            time = time_ms;
        } else {
            drop(stream);
            stream.candidate = Candidate{offset, *step, time, *other.last, {}};
        }
        step.reset();
    }
    stream.last = time;
    (stream.candidate ? stream.candidate->extent : stream.extent).add(time, step);
    drop_stale();
}

void RepairTimes::finish()
{
    for (Stream& stream : m_streams)
        drop(stream);
    close_segment();
    place_segments();
}

void RepairTimes::place_segments()
{
    int64_t end = 0;  // of the segments before
    int64_t last = 0; // time in them
    int64_t frame = USUAL_FRAME_MS;
    bool first = true;
    for (Segment& segment : m_segments) {
        if (segment.frame > 0)
            frame = segment.frame;
        if (segment.empty()) {
            segment.start = segment.end = last;
            continue;
        }
        segment.shift = m_rules.keep_times ? 0 : end - segment.min;
        segment.start = segment.min + segment.shift;
        segment.end = segment.max + segment.shift;
        m_in_range = m_in_range && segment.start >= 0 && segment.end <= LARGEST_TIME;
        m_end = first ? segment.end + frame : std::max(m_end, segment.end + frame);
        last = segment.end;
        end = last + frame;
        first = false;
    }
}

MovedTime RepairTimes::Cursor::move(const Tag& tag)
{
    const auto lane = static_cast<size_t>(lane_of(tag));
    const std::vector<Piece>& pieces = m_times.m_pieces[lane];
    size_t& at = m_at[lane];
    while (at + 1 < pieces.size() && pieces[at + 1].offset <= tag.offset)
        ++at;
    const Segment& segment = m_times.m_segments[pieces[at].segment];
    if (m_times.m_rules.keep_times)
        return {pieces[at].segment, tag.dts_ms()};
    const int64_t time = tag.dts_ms() + pieces[at].add + segment.shift;
    if (is_frame(tag))
        return {pieces[at].segment, time};
    return {pieces[at].segment, std::clamp(time, segment.start, segment.end)};
}

} // namespace zoflv_inspect
