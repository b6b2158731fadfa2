// SPDX-License-Identifier: Apache-2.0
#include "inspect/scan.h"

#include "inspect/script.h"
#include "inspect/walker.h"

#include <algorithm>
#include <cstdlib>

namespace zoflv_inspect {

namespace {

// FNV-1a: tells configurations apart, not more.
uint64_t hash_of(View bytes)
{
    uint64_t hash = 0xCBF29CE484222325;
    for (size_t i = 0; i < bytes.size; ++i)
        hash = (hash ^ bytes.data[i]) * 0x100000001B3;
    return hash;
}

// The row that `same` is true of, else a new one; null when there is no room.
template <typename T, size_t N, typename Same>
T* row_for(Few<T, N>* few, Same same)
{
    for (size_t i = 0; i < few->count; ++i)
        if (same(few->rows[i]))
            return &few->rows[i];
    if (few->count < N)
        return &few->rows[few->count++];
    ++few->others;
    return nullptr;
}

void count_codec(const Tag& tag, StreamScan* stream)
{
    const Codec codec = tag.body.codec;
    CodecCount* row =
        row_for(&stream->codecs, [&](const CodecCount& c) { return c.codec == codec; });
    if (!row)
        return;
    if (row->tags++ == 0) {
        row->codec = codec;
        row->offset = tag.offset;
    }
}

void count_config(const Tag& tag, TagWalker& walker, StreamScan* stream)
{
    const View bytes = walker.body(tag, tag.body.payload, tag.payload_size());
    const auto size = static_cast<uint32_t>(bytes.size);
    const uint64_t hash = hash_of(bytes);
    ConfigCount* row = row_for(&stream->configurations, [&](const ConfigCount& c) {
        return c.hash == hash && c.size == size;
    });
    if (row && row->tags++ == 0)
        *row = {1, hash, size, tag.offset, tag.dts_ms()};
}

std::optional<double> number_of(const ScriptTree& tree, const ScriptNode& object, const char* name)
{
    const ScriptNode* node = tree.property(object, name);
    return node && node->type == AmfType::NUMBER ? std::optional<double>(node->number)
                                                 : std::nullopt;
}

void read_claims(const Tag& tag, TagWalker& walker, Claims* claims)
{
    const View body = walker.body(tag);
    const ScriptTree tree(body.data, body.size);
    const ScriptNode* name = tree.top(0);
    const ScriptNode* object = tree.top(1);
    if (!name || tree.text(*name) != "onMetaData" || !object)
        return;
    claims->found = true;
    claims->offset = tag.offset;
    const struct {
        const char* name;
        std::optional<double> Claims::*field;
    } fields[] = {
        {"duration", &Claims::duration},           {"framerate", &Claims::framerate},
        {"filesize", &Claims::filesize},           {"videodatarate", &Claims::videodatarate},
        {"audiodatarate", &Claims::audiodatarate},
    };
    for (const auto& field : fields)
        claims->*field.field = number_of(tree, *object, field.name);
    const ScriptNode* index = tree.property(*object, "keyframes");
    const ScriptNode* times = index ? tree.property(*index, "times") : nullptr;
    if (times)
        claims->index_entries = times->found;
}

void count_step(const Tag& tag, int64_t step, StreamScan* stream)
{
    StepScan& steps = stream->steps;
    steps.back += step < 0;
    steps.repeats += step == 0;
    steps.gaps += step > Scan::GAP_MS;
    if (step > 0 && step <= Scan::GAP_MS)
        stream->last_step_ms = step;
    if (step < steps.largest_back.value)
        steps.largest_back = {step, tag.offset, tag.dts_ms()};
    if (step > Scan::GAP_MS && step > steps.largest_gap.value)
        steps.largest_gap = {step, tag.offset, tag.dts_ms()};
}

void count_keyframe(const Tag& tag, KeyframeScan* keys)
{
    const int64_t dts = tag.dts_ms();
    const int64_t space = dts - keys->last_dts_ms;
    if (keys->count > 0 && space >= 0) {
        keys->shortest_ms = keys->spaces == 0 ? space : std::min(keys->shortest_ms, space);
        if (keys->spaces == 0 || space > keys->longest.value)
            keys->longest = {space, tag.offset, dts};
        ++keys->spaces;
        keys->sum_ms += space;
    }
    if (keys->count++ == 0) {
        keys->first_dts_ms = dts;
        keys->first_offset = tag.offset;
    }
    keys->last_dts_ms = dts;
    keys->last_offset = tag.offset;
}

} // namespace

int64_t Scan::start_ms() const
{
    if (video.frames == 0 || audio.frames == 0)
        return video.frames > 0 ? video.min_dts_ms : audio.min_dts_ms;
    return std::min(video.min_dts_ms, audio.min_dts_ms);
}

int64_t Scan::duration_ms() const
{
    int64_t last = start_ms();
    for (const StreamScan* stream : {&video, &audio})
        if (stream->frames > 0)
            last = std::max(last, stream->min_dts_ms + stream->duration_ms());
    return last - start_ms();
}

void Scanner::see(const Item& item, TagWalker& walker)
{
    switch (item.kind) {
    case ItemKind::FILE_HEADER:
        m_scan.has_header = true;
        m_scan.header = item.header;
        break;
    case ItemKind::INNER_HEADER:
        ++m_scan.inner_headers;
        break;
    case ItemKind::TAG:
        see_tag(item.tag, walker);
        break;
    case ItemKind::LOST:
        ++m_scan.lost_ranges;
        m_scan.lost_bytes += item.lost.size;
        if (LostRange* row = row_for(&m_scan.lost, [](const LostRange&) { return false; }))
            *row = item.lost;
        break;
    case ItemKind::END:
        m_scan.end = item.end;
        break;
    }
}

void Scanner::see_tag(const Tag& tag, TagWalker& walker)
{
    if (!tag.cut)
        ++m_scan.links[static_cast<size_t>(tag.link)];
    m_scan.stream_ids += tag.stream_id != 0;
    if (!tag.audio() && !tag.video() && !tag.script()) {
        ++m_scan.other_tags;
        return;
    }
    StreamScan& stream = tag.video() ? m_scan.video : tag.audio() ? m_scan.audio : m_scan.script;
    if (stream.tags++ == 0)
        stream.first_offset = tag.offset;
    stream.bytes += tag.stored;
    stream.filtered += tag.filtered();
    stream.negative_times += tag.dts_ms() < 0;
    if (tag.script()) {
        if (!m_scan.claims.found)
            read_claims(tag, walker, &m_scan.claims);
        return;
    }
    if (tag.body.known)
        count_codec(tag, &stream);
    const Packet packet = tag.body.packet;
    stream.ends += packet == Packet::END;
    if (packet == Packet::END)
        return;
    stream.empty += tag.payload_size() == 0;
    stream.configs += packet == Packet::CONFIG;
    if (packet == Packet::CONFIG)
        count_config(tag, walker, &stream);
    else if (packet == Packet::FRAME && tag.payload_size() > 0)
        see_frame(tag, &stream);
}

void Scanner::see_frame(const Tag& tag, StreamScan* stream)
{
    const int64_t dts = tag.dts_ms();
    const int64_t pts = tag.pts_ms();
    if (stream->frames++ == 0) {
        stream->first_dts_ms = stream->min_dts_ms = stream->max_dts_ms = dts;
        stream->min_pts_ms = stream->max_pts_ms = pts;
    } else {
        count_step(tag, dts - stream->last_dts_ms, stream);
    }
    stream->last_dts_ms = dts;
    stream->min_dts_ms = std::min(stream->min_dts_ms, dts);
    stream->max_dts_ms = std::max(stream->max_dts_ms, dts);
    stream->min_pts_ms = std::min(stream->min_pts_ms, pts);
    stream->max_pts_ms = std::max(stream->max_pts_ms, pts);
    stream->frame_bytes += tag.payload_size();
    stream->largest_frame = std::max(stream->largest_frame, tag.payload_size());
    if (tag.video() && tag.body.keyframe)
        count_keyframe(tag, &stream->keyframes);
    if (!tag.audio() || m_scan.video.frames == 0)
        return;
    const int64_t apart = dts - m_scan.video.last_dts_ms;
    Spot& most = m_scan.furthest_apart;
    if (most.offset < 0 || std::abs(apart) > std::abs(most.value))
        most = {apart, tag.offset, dts};
}

} // namespace zoflv_inspect
