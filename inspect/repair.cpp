// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair.h"

#include "inspect/repair_again.h"
#include "inspect/repair_tags.h"
#include "inspect/walker.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>

namespace zoflv_inspect {

namespace {

constexpr uint8_t FLAG_VIDEO = 1, FLAG_AUDIO = 4;
constexpr uint32_t FILE_HEADER_SIZE = 9;
constexpr int64_t FIRST_TAG = FILE_HEADER_SIZE + PREVIOUS_TAG_SIZE_SIZE;
constexpr int64_t TAG_OVERHEAD = TAG_HEADER_SIZE + PREVIOUS_TAG_SIZE_SIZE;
constexpr int64_t AUDIO_ENTRY_MS = 1000; // a file without video has an entry for so long
constexpr size_t MOST_SEGMENTS_TOLD = 1000;
constexpr uint32_t PIECE = 64 * 1024; // of a body, looked at at a time

// FNV-1a
class Hash {
public:
    void bytes(const uint8_t* data, size_t size)
    {
        for (size_t i = 0; i < size; ++i)
            m_value = (m_value ^ data[i]) * 0x100000001B3U;
    }
    void number(uint64_t value) { m_value = (m_value ^ value) * 0x100000001B3U; }
    uint64_t value() const { return m_value; }

private:
    uint64_t m_value = 0xCBF29CE484222325U;
};

/// Whether a configuration is late, and can be put in front.
struct ConfigSurvey {
    LateConfig first{};
    bool frames_before = false; ///< the first one
    bool frames = false;
    bool all_equal = true;
    uint64_t hash = 0;
    std::optional<Codec> codec;
    bool one_codec = true;

    bool late() const { return first.offset >= 0 && frames_before && all_equal && one_codec; }
};

/// The first reading: what there is.
class Survey {
public:
    explicit Survey(RepairPlan* plan) : m_plan(*plan) {}

    void see(const Item& item, TagWalker& walker)
    {
        RepairReport& report = m_plan.report;
        switch (item.kind) {
        case ItemKind::FILE_HEADER:
        case ItemKind::INNER_HEADER:
            if (item.kind == ItemKind::FILE_HEADER && !m_any_tag) {
                m_header = true;
                report.old_flags = item.header.flags;
                break;
            }
            ++report.inner_headers;
            m_plan.times.inner_header(item.header.offset);
            break;
        case ItemKind::TAG:
            see_tag(item.tag, walker);
            break;
        case ItemKind::LOST:
            ++report.lost_ranges;
            report.lost_bytes += item.lost.size;
            break;
        case ItemKind::END:
            m_plan.end = item.end.offset;
            if (item.end.kind == EndKind::READ_FAILED)
                m_plan.error = RepairError::READ_FAILED;
            break;
        }
    }

    void finish()
    {
        RepairReport& report = m_plan.report;
        m_plan.times.finish();
        for (size_t i = 0; i < m_configs.size(); ++i) {
            if (m_configs[i].late()) {
                m_plan.late[i] = m_configs[i].first;
                report.moved_config[i] = true;
            }
        }
        const std::vector<Segment>& segments = m_plan.times.segments();
        m_plan.one_order = m_plan.times.rules().keep_times && segments.size() > 1;
        for (size_t i = 0; i < segments.size(); ++i) {
            report.steps_back += segments[i].backward;
            if (segments[i].backward > 0 || m_plan.one_order)
                m_plan.not_merged.insert(i);
        }
        report.segments.assign(segments.begin(),
                               segments.begin() + static_cast<ptrdiff_t>(std::min(
                                                      segments.size(), MOST_SEGMENTS_TOLD)));
        report.wraps = m_plan.times.wraps();
        report.no_header = !m_header;
        report.new_flags = m_plan.flags;
        report.old_size = m_plan.end;
        if (m_plan.error != RepairError::NONE)
            return;
        if (!m_plan.times.has_frames())
            m_plan.error = RepairError::NO_FRAMES;
        else if (!m_plan.times.in_range())
            m_plan.error = RepairError::OUT_OF_RANGE;
    }

    RepairMetadata& metadata() { return m_metadata; }

private:
    void see_tag(const Tag& tag, TagWalker& walker)
    {
        RepairReport& report = m_plan.report;
        m_any_tag = true;
        if (!tag.cut && tag.link != Link::RIGHT)
            ++report.links;
        switch (fate_of(tag, -1)) {
        case Fate::CUT:
            ++report.cut_tags;
            return;
        case Fate::EMPTY:
            ++report.empty_tags;
            return;
        default:
            break;
        }
        if (tag.stream_id != 0)
            ++report.stream_ids;
        if (tag.script() && see_script(tag, walker))
            return;
        if (tag.audio() || tag.video())
            see_media(tag, walker);
        m_plan.times.see(tag);
    }

    // Whether it is onMetaData.
    bool see_script(const Tag& tag, TagWalker& walker)
    {
        constexpr uint32_t ENOUGH_FOR_NAMES = 64;
        if (!RepairMetadata::is_metadata(walker.body(tag, 0, ENOUGH_FOR_NAMES)))
            return false;
        if (m_plan.metadata_offset >= 0) {
            ++m_plan.report.more_metadata;
            return true;
        }
        m_plan.metadata_offset = tag.offset;
        m_metadata.take(walker.body(tag));
        m_plan.report.properties = m_metadata.dropped();
        return true;
    }

    void see_media(const Tag& tag, TagWalker& walker)
    {
        ConfigSurvey& config = m_configs[tag.audio() ? 0 : 1];
        m_plan.flags |= tag.audio() ? FLAG_AUDIO : FLAG_VIDEO;
        config.one_codec = config.one_codec && (!config.codec || *config.codec == tag.body.codec);
        config.codec = tag.body.codec;
        if (is_frame(tag)) {
            config.frames = true;
            if (tag.video())
                m_plan.last_video_frame = tag.offset;
        }
        if (!is_config(tag))
            return;
        const uint64_t hash = hash_of(tag, walker);
        if (config.first.offset < 0) {
            config.first = {tag.offset, tag.stored, tag.type_byte};
            config.frames_before = config.frames;
            config.hash = hash;
        }
        config.all_equal = config.all_equal && hash == config.hash;
    }

    static uint64_t hash_of(const Tag& tag, TagWalker& walker)
    {
        Hash hash;
        hash.number(tag.body.codec.number);
        for (uint32_t at = tag.body.payload; at < tag.stored; at += PIECE) {
            const View view = walker.body(tag, at, PIECE);
            hash.bytes(view.data, view.size);
        }
        return hash.value();
    }

    RepairPlan& m_plan;
    RepairMetadata m_metadata;
    std::array<ConfigSurvey, 2> m_configs{}; ///< audio, video
    bool m_header = false;
    bool m_any_tag = false;
};

/// The second reading: where everything comes to be.
class Layout {
public:
    Layout(const RepairPlan& plan, size_t most_entries)
        : m_has_video((plan.flags & FLAG_VIDEO) != 0), m_index(most_entries),
          m_again(plan.times.rules())
    {}

    void see(const OutTag& tag)
    {
        const uint8_t type = tag.type();
        const IndexEntry entry{tag.time, m_at};
        if (type == TAG_VIDEO) {
            m_video_bytes += tag.size;
            if (tag.frame)
                m_last_is_key = tag.keyframe;
            if (tag.keyframe) {
                m_last_key = entry;
                m_index.add(entry);
            }
        } else if (type == TAG_AUDIO) {
            m_audio_bytes += tag.size;
            if (!m_has_video && tag.frame)
                add_sound(entry);
        }
        if (tag.frame)
            m_last_time = std::max(m_last_time, tag.time);
        m_data_bytes += tag.size;
        m_at += TAG_OVERHEAD + tag.size;
        ++m_tags;
        m_hash.number(static_cast<uint64_t>(tag.from));
        m_hash.number(static_cast<uint32_t>(tag.time));
        m_again.see(tag);
    }

    void finish(const RepairMetadata& metadata, RepairPlan* plan)
    {
        m_again.finish();
        plan->settled = m_again.settled();
        const uint32_t body = metadata.body_size(m_index.entries().size(), m_last_key.has_value());
        const int64_t base = FIRST_TAG + TAG_OVERHEAD + body; // of the positions
        NewFigures figures;
        figures.duration = static_cast<double>(m_again.end_ms()) / 1000.0;
        figures.filesize = static_cast<double>(base + m_at);
        figures.datasize = static_cast<double>(m_data_bytes + body);
        figures.videosize = static_cast<double>(m_video_bytes);
        figures.audiosize = static_cast<double>(m_audio_bytes);
        figures.lasttimestamp = m_last_time / 1000.0;
        figures.has_video = (plan->flags & FLAG_VIDEO) != 0;
        figures.has_audio = (plan->flags & FLAG_AUDIO) != 0;
        figures.can_seek_to_end = m_last_is_key;
        figures.last_keyframe = m_last_key;
        if (figures.last_keyframe)
            figures.last_keyframe->offset += base;
        figures.index = m_index.entries();
        for (IndexEntry& entry : figures.index)
            entry.offset += base;
        plan->metadata = metadata.body(figures);
        plan->total = base + m_at;
        plan->fingerprint = m_hash.value();
        RepairReport& report = plan->report;
        report.index_entries = figures.index.size();
        report.keyframes = m_index.seen();
        report.new_size = plan->total;
        report.duration = figures.duration;
        report.tags = m_tags;
    }

private:
    // An entry for the last frame that is no more than so far from the entry before.
    void add_sound(const IndexEntry& frame)
    {
        const auto far = [&] {
            return !m_last_sound || frame.time - m_last_sound->time > AUDIO_ENTRY_MS;
        };
        for (const auto& entry : {m_sound_before, std::optional(frame)}) {
            if (entry && far()) {
                m_index.add(*entry);
                m_last_sound = entry;
            }
        }
        m_sound_before = frame;
    }

    const bool m_has_video;
    IndexCollector m_index;                   ///< positions after the onMetaData tag
    std::optional<IndexEntry> m_last_sound;   ///< in the index
    std::optional<IndexEntry> m_sound_before; ///< the last frame
    int64_t m_at = 0;
    int64_t m_data_bytes = 0, m_video_bytes = 0, m_audio_bytes = 0;
    int32_t m_last_time = 0;
    bool m_last_is_key = false;
    std::optional<IndexEntry> m_last_key;
    uint64_t m_tags = 0;
    Hash m_hash;
    RepairAgain m_again;
};

void lay_out(ByteSource& source, const RepairMetadata& metadata, RepairPlan* plan,
             const RepairOptions& options)
{
    for (bool again = false;; again = true) {
        Layout layout(*plan, metadata.most_entries());
        const TagRun run = run_repaired_tags(
            source, *plan, [&](const OutTag& tag) { layout.see(tag); }, options);
        if (!run.complete || !run.in_range) {
            plan->error = run.complete ? RepairError::OUT_OF_RANGE : RepairError::READ_FAILED;
            return;
        }
        if (run.late.empty() || plan->one_order) {
            layout.finish(metadata, plan);
            const bool same = !run.retimed && run.moved == 0 && plan->report.inner_headers == 0;
            plan->settled = plan->settled || same;
            plan->report.reordered = run.moved;
            plan->report.early_ends = run.early_ends;
            plan->report.not_merged = plan->not_merged.size();
            return;
        }
        // Their streams are too far apart for the window. Once more without those segments; and if
        // that is not enough, in the order of the file.
        plan->one_order = again;
        plan->not_merged.insert(run.late.begin(), run.late.end());
    }
}

/// Reads bodies, each stream's in its own order, so in large pieces.
class BodyReader {
public:
    explicit BodyReader(SourcePart& source)
        : m_source(source), m_buffer(static_cast<size_t>(std::min(source.size(), LARGEST_PIECE)))
    {}

    /// @return bytes at `offset`, 1 to `size` of them; none when it cannot be read
    View read(int64_t offset, uint32_t size)
    {
        if (offset < m_start || offset >= m_start + static_cast<int64_t>(m_held)) {
            const int64_t count = m_source.read_at(offset, m_buffer.data(), m_buffer.size());
            m_start = offset;
            m_held = count > 0 ? static_cast<size_t>(count) : 0;
        }
        const auto at = static_cast<size_t>(offset - m_start);
        return {m_buffer.data() + at, std::min<size_t>(size, m_held - std::min(at, m_held))};
    }

private:
    static constexpr int64_t LARGEST_PIECE = 256 * 1024;

    ByteSource& m_source;
    std::vector<uint8_t> m_buffer;
    int64_t m_start = 0;
    size_t m_held = 0;
};

/// Puts small pieces together on their way to the sink.
class Writer {
public:
    explicit Writer(const ByteSink& sink) : m_sink(sink) { m_buffer.reserve(CAPACITY); }

    void bytes(const uint8_t* data, size_t size)
    {
        if (m_buffer.size() + size > CAPACITY)
            flush();
        if (size > CAPACITY)
            send(data, size);
        else
            m_buffer.insert(m_buffer.end(), data, data + size);
    }
    void u(uint32_t value, int count)
    {
        uint8_t data[4];
        for (int i = 0; i < count; ++i)
            data[i] = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
        bytes(data, static_cast<size_t>(count));
    }
    void tag_header(uint8_t type_byte, uint32_t size, int32_t time)
    {
        u(type_byte, 1);
        u(size, 3);
        u(static_cast<uint32_t>(time) & 0xFFFFFF, 3);
        u(static_cast<uint32_t>(time) >> 24, 1);
        u(0, 3); // StreamID
    }
    void flush()
    {
        if (!m_buffer.empty())
            send(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
    }
    bool failed() const { return m_failed; }
    int64_t written() const { return m_written; }

private:
    static constexpr size_t CAPACITY = 256 * 1024;

    void send(const uint8_t* data, size_t size)
    {
        m_failed = m_failed || !m_sink(data, size);
        m_written += static_cast<int64_t>(size);
    }

    const ByteSink& m_sink;
    std::vector<uint8_t> m_buffer;
    int64_t m_written = 0;
    bool m_failed = false;
};

} // namespace

const char* repair_error_text(RepairError error)
{
    constexpr const char* texts[] = {
        "nothing is wrong",
        "it cannot be read to its end",
        "it has no frame that could be played",
        "a time would be below 0 or above 2,147,483,647 ms",
        "it changed while it was read",
        "the new file cannot be written",
    };
    static_assert(std::size(texts) == static_cast<size_t>(RepairError::WRITE_FAILED) + 1, "each");
    return texts[static_cast<size_t>(error)];
}

void RepairReport::go_on(const RepairReport& next)
{
    reordered += next.reordered;
    wraps += next.wraps;
    tags = next.tags;
    steps_back = next.steps_back;
    not_merged = next.not_merged;
    index_entries = next.index_entries;
    keyframes = next.keyframes;
    new_size = next.new_size;
    duration = next.duration;
}

RepairPlan plan_repair(ByteSource& source, const RepairOptions& options)
{
    RepairPlan plan(options.times);
    Survey survey(&plan);
    TagWalker walker(source);
    while (const Item* item = walker.next()) {
        survey.see(*item, walker);
        if (options.progress && item->kind == ItemKind::TAG)
            options.progress(item->tag.offset);
    }
    survey.finish();
    if (plan.error != RepairError::NONE)
        return plan;
    SourcePart part(source, plan.end);
    lay_out(part, survey.metadata(), &plan, options);
    return plan;
}

RepairError write_repair(ByteSource& source, const RepairPlan& plan, const ByteSink& sink,
                         const RepairOptions& options)
{
    if (plan.error != RepairError::NONE)
        return plan.error;
    Writer out(sink);
    const uint8_t header[] = {'F', 'L', 'V', 1, plan.flags, 0, 0, 0, FILE_HEADER_SIZE, 0, 0, 0, 0};
    out.bytes(header, sizeof header);
    const auto metadata_size = static_cast<uint32_t>(plan.metadata.size());
    out.tag_header(TAG_SCRIPT, metadata_size, 0);
    out.bytes(plan.metadata.data(), metadata_size);
    out.u(TAG_HEADER_SIZE + metadata_size, 4);

    SourcePart part(source, plan.end);
    std::array<BodyReader, 2> bodies{BodyReader(part), BodyReader(part)};
    Hash hash;
    bool changed = false;
    const auto write_tag = [&](const OutTag& tag) {
        if (changed || out.failed())
            return;
        hash.number(static_cast<uint64_t>(tag.from));
        hash.number(static_cast<uint32_t>(tag.time));
        out.tag_header(tag.type_byte, tag.size, tag.time);
        for (uint32_t done = 0; done < tag.size && !changed && !out.failed();) {
            const View view = bodies[tag.queue].read(tag.from + done, tag.size - done);
            out.bytes(view.data, view.size);
            done += static_cast<uint32_t>(view.size);
            changed = view.size == 0;
        }
        out.u(TAG_HEADER_SIZE + tag.size, 4);
    };
    const TagRun run = run_repaired_tags(part, plan, write_tag, options);
    out.flush();
    if (out.failed())
        return RepairError::WRITE_FAILED;
    if (!run.complete || changed || hash.value() != plan.fingerprint || out.written() != plan.total)
        return RepairError::CHANGED;
    return RepairError::NONE;
}

} // namespace zoflv_inspect
