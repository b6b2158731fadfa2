// SPDX-License-Identifier: Apache-2.0
#include "inspect/findings.h"

#include "inspect/codec_names.h"
#include "inspect/finding_detectors.h"
#include "inspect/words.h"

#include <algorithm>
#include <iterator>

namespace zoflv_inspect {

namespace {

constexpr int32_t ERROR_CODEC = -1002;
constexpr int32_t ERROR_CONFIGURATION = -1003;
constexpr int32_t ERROR_PICTURE_SIZE = -1004;

// Rules of tags that say why there is no configuration.
constexpr Rule CONFIGURATION_RULES[] = {Rule::CODEC_NEWER, Rule::AVC_SPS_UNREAD,
                                        Rule::AVC_CONFIG_BAD, Rule::AVC_NO_CONFIG,
                                        Rule::AVC_LATE_CONFIG};

std::string size_text(const PictureSize& size)
{
    return format("%d x %d", size.width, size.height);
}

// What a track's error type says, where the tags have not said it already.
void judge_track(FindingSink* sink, StreamKind kind, const TrackFacts& track, const Codec* codec)
{
    if (!track.published || !codec)
        return;
    const bool config_told =
        std::any_of(std::begin(CONFIGURATION_RULES), std::end(CONFIGURATION_RULES),
                    [&](Rule rule) { return sink->has(rule, kind); });
    Finding* finding = nullptr;
    if (track.error_type == ERROR_CODEC && !sink->has(Rule::CODEC_NEWER, kind))
        finding = sink->add(Rule::CODEC_UNPLAYABLE, kind);
    else if (track.error_type == ERROR_CONFIGURATION && !config_told)
        finding = sink->add(Rule::VIDEO_NO_CONFIG, kind);
    else if (track.error_type == ERROR_PICTURE_SIZE && !sink->explain(Rule::AVC_SIZE_MISREAD, kind))
        finding = sink->add(Rule::VIDEO_TOO_LARGE, kind);
    if (finding)
        finding->detail =
            finding->rule == Rule::VIDEO_TOO_LARGE
                ? size_text(track.picture) + ", and at most " + size_text(track.largest)
                : codec_name(kind == StreamKind::VIDEO, *codec);
}

} // namespace

void FrameSizes::see(const Tag& tag, uint32_t size)
{
    constexpr uint32_t SMALLEST_BUFFER = 512 * 1024; // what a track publishes at least
    if (size > SMALLEST_BUFFER && (m_records.empty() || size > m_records.back().size))
        m_records.push_back({size, tag.offset, tag.dts_ms()});
}

void FrameSizes::finish(FindingSink* sink, StreamKind kind, int32_t max_input_size) const
{
    for (const Frame& frame : m_records) {
        if (max_input_size <= 0 || frame.size <= static_cast<uint32_t>(max_input_size))
            continue;
        if (Finding* finding =
                sink->add(Rule::FRAME_TOO_LARGE, kind, frame.offset, frame.dts_ms * 1000))
            finding->detail =
                counted(frame.size, "byte") + " for a buffer of " + grouped(max_input_size);
        return; // how many more there are is not known
    }
}

struct Findings::Detectors {
    FindingSink sink;
    StructureCheck structure{sink};
    TimeCheck times{sink};
    MetadataCheck metadata{sink};
    IndexCheck index{sink};
    VideoCheck video{sink};
    AudioCheck audio{sink};
    uint64_t tags = 0;
    End end{};

    void see(const Tag& tag, TagWalker& walker)
    {
        ++tags;
        if (tag.script())
            metadata.see(tag, walker, tags == 1);
        if (tags == 1)
            index.start(metadata.known());
        index.see(tag, walker);
        if (tag.type_byte == TAG_VIDEO || tag.type_byte == TAG_AUDIO)
            times.see(tag);
        video.see(tag, walker, tags);
        audio.see(tag, walker);
    }
};

Findings::Findings() : m(std::make_unique<Detectors>()) {}
Findings::~Findings() = default;

void Findings::see(const Item& item, TagWalker& walker)
{
    m->structure.see(item);
    if (item.kind == ItemKind::TAG)
        m->see(item.tag, walker);
    else if (item.kind == ItemKind::END)
        m->end = item.end;
}

std::vector<Finding> Findings::finish(const DeviceFacts& facts)
{
    if (m->end.kind == EndKind::READ_FAILED)
        return m->sink.take(); // what is missing may well be there
    m->structure.finish();
    if (m->structure.has_media()) {
        m->metadata.finish();
        m->times.finish(m->metadata.known().read.duration * 1000);
        m->index.finish(m->end.offset, m->video.codec() != nullptr);
        m->video.finish(m->metadata.known());
        m->audio.finish();
        judge_track(&m->sink, StreamKind::VIDEO, facts.video, m->video.codec());
        judge_track(&m->sink, StreamKind::AUDIO, facts.audio, m->audio.codec());
        m->video.sizes().finish(&m->sink, StreamKind::VIDEO, facts.video.max_input_size);
        m->audio.sizes().finish(&m->sink, StreamKind::AUDIO, facts.audio.max_input_size);
    }
    return m->sink.take();
}

std::vector<Finding> find_all(ByteSource& source, const DeviceFacts& facts)
{
    TagWalker walker(source);
    Findings findings;
    while (const Item* item = walker.next())
        findings.see(*item, walker);
    return findings.finish(facts);
}

} // namespace zoflv_inspect
