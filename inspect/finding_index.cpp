// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_detectors.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <numeric>

namespace zoflv_inspect {

namespace {

constexpr double SAME_TIME = 1.0;    // ms: times are written as seconds in binary64, some rounded
constexpr int64_t SEARCH = 2048;     // bytes before an entry where a seek looks for its keyframe
constexpr uint64_t HARMLESS_RUN = 1; // keyframes left out between two that are in the index
constexpr double AUDIO_GAP = 1050;   // ms between entries of a file without video

bool begins_tag(uint8_t byte)
{
    return byte == TAG_AUDIO || byte == TAG_VIDEO || byte == TAG_SCRIPT;
}

// As the demuxer does: a position is cut to a whole number, NaN is 0.
int64_t to_offset(double position)
{
    constexpr double LARGEST = 9.0e18;
    if (std::isnan(position))
        return 0;
    return static_cast<int64_t>(std::clamp(position, -LARGEST, LARGEST));
}

// NaN is a time that no tag has, and that sorts.
double to_milliseconds(double seconds)
{
    return std::isnan(seconds) ? -1e12 : seconds * 1000;
}

// The byte of the file at a position that a tag covers.
uint8_t byte_at(const Tag& tag, int64_t offset, TagWalker& walker)
{
    const int64_t at = offset - tag.body_offset();
    if (offset == tag.offset)
        return tag.type_byte;
    if (at >= 0 && at < int64_t{tag.stored}) {
        const View view = walker.body(tag, static_cast<uint32_t>(at), 1);
        return view.size == 1 ? *view.data : 0;
    }
    if (at >= 0) // in PreviousTagSize
        return static_cast<uint8_t>(tag.previous_tag_size >> (24 - 8 * (at - tag.stored)));
    const uint8_t header[TAG_HEADER_SIZE] = {
        tag.type_byte,
        static_cast<uint8_t>(tag.size >> 16),
        static_cast<uint8_t>(tag.size >> 8),
        static_cast<uint8_t>(tag.size),
        static_cast<uint8_t>(tag.time >> 16),
        static_cast<uint8_t>(tag.time >> 8),
        static_cast<uint8_t>(tag.time),
        static_cast<uint8_t>(tag.time >> 24),
        static_cast<uint8_t>(tag.stream_id >> 16),
        static_cast<uint8_t>(tag.stream_id >> 8),
        static_cast<uint8_t>(tag.stream_id),
    };
    return header[offset - tag.offset];
}

} // namespace

Finding* IndexCheck::add(Rule rule, const Entry& entry)
{
    const double time_us = entry.time_ms * 1000;
    const bool sane = std::abs(time_us) < 9.0e15;
    return m_sink.add(rule, StreamKind::FILE, entry.offset,
                      sane ? static_cast<int64_t>(time_us) : NO_TIME);
}

void IndexCheck::start(const KnownMetadata& metadata)
{
    m_meta_offset = metadata.offset;
    const ReadMetadata& read = metadata.read;
    const size_t count = std::min(read.times.size(), read.filepositions.size());
    if (count == 0)
        return;
    check_arrays(read);
    m_entries.reserve(count);
    for (size_t i = 0; i < count; ++i)
        m_entries.push_back({to_milliseconds(read.times[i]), to_offset(read.filepositions[i])});
    const int64_t first = m_entries.front().offset;
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [](const Entry& a, const Entry& b) { return a.offset < b.offset; });
    while (m_entries[m_first].offset != first)
        ++m_first;
    m_by_time.resize(count);
    std::iota(m_by_time.begin(), m_by_time.end(), size_t{0});
    std::stable_sort(m_by_time.begin(), m_by_time.end(), [this](size_t a, size_t b) {
        return m_entries[a].time_ms < m_entries[b].time_ms;
    });
}

void IndexCheck::check_arrays(const ReadMetadata& read)
{
    if (read.times.size() != read.filepositions.size()) {
        if (Finding* finding = m_sink.add(Rule::INDEX_COUNTS, StreamKind::FILE, m_meta_offset))
            finding->detail =
                format("%zu times and %zu positions", read.times.size(), read.filepositions.size());
    }
    const size_t count = std::min(read.times.size(), read.filepositions.size());
    for (size_t i = 1; i < count; ++i) {
        if (read.times[i] >= read.times[i - 1])
            continue;
        if (Finding* finding = m_sink.add(Rule::INDEX_ORDER, StreamKind::FILE, m_meta_offset))
            finding->detail = format("entry %zu comes after entry %zu", i, i + 1);
    }
}

void IndexCheck::see(const Tag& tag, TagWalker& walker)
{
    bool hit = false;
    for (; m_at < m_entries.size() && m_entries[m_at].offset < tag.end(); ++m_at) {
        Entry& entry = m_entries[m_at];
        if (entry.offset < tag.offset)
            continue; // in what is lost, or in the file header
        if (m_at == m_first || entry.offset == tag.offset)
            entry.first_byte = begins_tag(byte_at(tag, entry.offset, walker));
        if (entry.offset == tag.offset) {
            hit = true;
            match(&entry, tag);
        }
    }
    if (tag.video() && tag.body.keyframe)
        look_for_key(tag, hit);
}

void IndexCheck::match(Entry* entry, const Tag& tag)
{
    entry->type = tag.type_byte;
    entry->tag_ms = tag.dts_ms();
    entry->keyframe = tag.audio() || tag.body.keyframe;
}

// Which entries mean this keyframe, and whether any does.
void IndexCheck::look_for_key(const Tag& tag, bool hit)
{
    if (tag.body.packet == Packet::CONFIG) {
        m_config_hit = m_config_hit || hit;
        return;
    }
    const auto time = static_cast<double>(tag.dts_ms());
    auto at = std::lower_bound(m_by_time.begin(), m_by_time.end(), time - SAME_TIME,
                               [this](size_t i, double t) { return m_entries[i].time_ms < t; });
    bool meant = hit || m_config_hit;
    m_config_hit = false;
    for (; at != m_by_time.end() && m_entries[*at].time_ms <= time + SAME_TIME; ++at) {
        meant = true;
        Entry& entry = m_entries[*at];
        if (entry.key != NO_OFFSET)
            break; // so that equal times cost nothing
        entry.key = tag.offset;
    }
    if (!m_any_key)
        m_first_key_missing = !meant;
    m_any_key = true;
    if (meant) {
        m_run = 0;
        return;
    }
    if (m_run++ == 0)
        m_run_at = tag.offset;
    if (m_run > m_longest_run) {
        m_longest_run = m_run;
        m_longest_run_at = m_run_at;
    }
}

void IndexCheck::finish(int64_t file_size, bool has_video)
{
    if (m_entries.empty()) {
        m_sink.add(Rule::INDEX_NONE, StreamKind::FILE, m_meta_offset);
        return;
    }
    const Entry& first = m_entries[m_first];
    if (first.offset >= file_size) {
        add(Rule::INDEX_FIRST_BEYOND, first);
        return;
    }
    if (!first.first_byte)
        add(Rule::INDEX_REJECTED, first);
    for (const Entry& entry : m_entries)
        check_entry(entry, file_size, has_video ? TAG_VIDEO : TAG_AUDIO);
    check_gaps(has_video);
}

void IndexCheck::check_entry(const Entry& entry, int64_t file_size, uint8_t wanted)
{
    const auto describe = [](Finding* finding, const std::string& detail) {
        if (finding)
            finding->detail = detail;
    };
    if (entry.offset >= file_size) {
        add(Rule::INDEX_BEYOND, entry);
    } else if (entry.type == 0) {
        const int64_t shift = entry.offset - entry.key;
        if (entry.key != NO_OFFSET && std::abs(shift) <= SEARCH)
            describe(
                add(Rule::INDEX_SHIFTED, entry),
                format("%" PRId64 " bytes too %s", std::abs(shift), shift > 0 ? "late" : "early"));
        else
            add(Rule::INDEX_MISS, entry);
    } else if (entry.type != wanted) {
        describe(add(Rule::INDEX_TYPE, entry), format("type %u", unsigned{entry.type}));
    } else if (!entry.keyframe) {
        add(Rule::INDEX_NO_KEYFRAME, entry);
    } else if (const double off = entry.time_ms - static_cast<double>(entry.tag_ms);
               !(std::abs(off) <= SAME_TIME)) {
        describe(add(Rule::INDEX_TIME, entry), "the index says " + seconds_text(entry.time_ms) +
                                                   ", the tag " +
                                                   seconds_text(static_cast<double>(entry.tag_ms)));
    }
}

void IndexCheck::check_gaps(bool has_video)
{
    if (has_video) {
        if (m_longest_run <= HARMLESS_RUN && !m_first_key_missing)
            return;
        if (Finding* finding = m_sink.add(Rule::INDEX_SPARSE, StreamKind::FILE, m_longest_run_at))
            finding->detail = format("%" PRIu64 " keyframes in a row", m_longest_run);
        return;
    }
    for (size_t i = 1; i < m_by_time.size(); ++i) {
        const Entry& before = m_entries[m_by_time[i - 1]];
        const double gap = m_entries[m_by_time[i]].time_ms - before.time_ms;
        if (!(gap > AUDIO_GAP))
            continue;
        if (Finding* finding = add(Rule::INDEX_SPARSE, before))
            finding->detail = "entries " + seconds_text(gap) + " apart";
    }
}

} // namespace zoflv_inspect
