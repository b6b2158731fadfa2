// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_tags.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr uint8_t VIDEO_AVC = 7;
constexpr uint32_t AVC_HEADER_SIZE = 5;
constexpr uint32_t ENOUGH_FOR_NAMES = 64; // of a script tag's events

class TagStream {
public:
    TagStream(const RepairPlan& plan, const RepairMerge::Sink& sink)
        : m_plan(plan), m_cursor(plan.times), m_merge(sink)
    {}

    void see(const Tag& tag)
    {
        const size_t lane = static_cast<size_t>(lane_of(tag));
        const bool stream = lane < 2;
        if (stream && tag.offset == m_plan.late[lane].offset)
            return; // it is in front
        const MovedTime moved = m_cursor.move(tag);
        if (stream)
            m_queue = static_cast<uint8_t>(lane);
        if (stream && !m_begun[lane]) {
            m_begun[lane] = true;
            const LateConfig& late = m_plan.late[lane];
            if (late.offset >= 0)
                add(late.offset, late.size, late.type_byte, moved, {});
        }
        add(tag.offset, tag.stored, tag.type_byte, moved, tag);
    }
    TagRun finish()
    {
        m_merge.finish();
        m_run.late = m_merge.late();
        m_run.moved = m_merge.moved();
        return m_run;
    }

private:
    void add(int64_t offset, uint32_t size, uint8_t type_byte, const MovedTime& moved,
             const Tag& tag)
    {
        m_run.in_range = m_run.in_range && moved.ms >= 0 && moved.ms <= INT32_MAX;
        m_run.retimed = m_run.retimed || moved.ms != tag.dts_ms();
        OutTag out;
        out.from = offset + TAG_HEADER_SIZE;
        out.size = size;
        out.time = static_cast<int32_t>(std::clamp<int64_t>(moved.ms, 0, INT32_MAX));
        out.type_byte = type_byte;
        out.frame = is_frame(tag);
        out.keyframe = out.frame && tag.video() && tag.body.keyframe;
        out.queue = m_queue;
        out.number = m_count++;
        order(moved, &out);
        m_merge.add(out);
    }
    void order(const MovedTime& moved, OutTag* out)
    {
        if (m_plan.one_order)
            return;
        out->segment = moved.segment;
        if (m_plan.not_merged.count(moved.segment) == 0)
            m_keys.set(moved.segment, m_plan.times.segments()[moved.segment].start, out);
    }

    const RepairPlan& m_plan;
    RepairTimes::Cursor m_cursor;
    OrderKeys m_keys;
    RepairMerge m_merge;
    TagRun m_run;
    std::array<bool, 2> m_begun{};
    uint8_t m_queue = 1; ///< where script tags go: to the stream of the tag before
    uint64_t m_count = 0;
};

} // namespace

bool is_config(const Tag& tag)
{
    return tag.body.packet == Packet::CONFIG && !tag.body.enhanced && has_payload(tag);
}

Fate fate_of(const Tag& tag, int64_t last_video_frame)
{
    if (tag.cut)
        return Fate::CUT;
    if (!tag.audio() && !tag.video())
        return tag.stored == 0 ? Fate::EMPTY : Fate::KEPT;
    if (has_payload(tag))
        return Fate::KEPT;
    const BodyInfo& body = tag.body;
    if (body.packet == Packet::END) {
        const bool avc = tag.video() && !body.enhanced && body.codec.number == VIDEO_AVC;
        const bool early = avc && tag.stored <= AVC_HEADER_SIZE && tag.offset < last_video_frame;
        return early ? Fate::EARLY_END : Fate::KEPT;
    }
    return body.enhanced && body.packet != Packet::FRAME && body.known ? Fate::KEPT : Fate::EMPTY;
}

TagRun run_repaired_tags(ByteSource& source, const RepairPlan& plan, const RepairMerge::Sink& sink,
                         const RepairOptions& options)
{
    TagWalker walker(source);
    TagStream stream(plan, sink);
    uint64_t early_ends = 0;
    bool complete = false;
    while (const Item* item = walker.next()) {
        if (item->kind == ItemKind::END)
            complete = item->end.kind != EndKind::READ_FAILED && item->end.offset == plan.end;
        if (item->kind != ItemKind::TAG)
            continue;
        const Tag& tag = item->tag;
        if (options.progress)
            options.progress(tag.offset);
        const Fate fate = fate_of(tag, plan.last_video_frame);
        early_ends += fate == Fate::EARLY_END;
        if (fate != Fate::KEPT)
            continue;
        if (tag.script() && (tag.offset == plan.metadata_offset ||
                             RepairMetadata::is_metadata(walker.body(tag, 0, ENOUGH_FOR_NAMES))))
            continue;
        stream.see(tag);
    }
    TagRun run = stream.finish();
    run.early_ends = early_ends;
    run.complete = complete;
    return run;
}

} // namespace zoflv_inspect
