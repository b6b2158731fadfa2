// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_data.h"

#include "inspect/script.h"
#include "inspect/walker.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace zoflv_inspect {

namespace {

constexpr std::string_view INDEX_NAME = "keyframes";
constexpr size_t MOST_INDEXES = 8; // a property of that name should be there once

/// A source in which the name of each keyframe index is another.
class HiddenIndexSource : public zoflv_host::DataSource {
public:
    HiddenIndexSource(std::shared_ptr<zoflv_host::DataSource> source, std::vector<int64_t> names)
        : m_source(std::move(source)), m_names(std::move(names))
    {}

    zoflv_host::ReadCounts counts() const override { return m_source->counts(); }

protected:
    ssize_t read_at(int64_t offset, void* data, size_t size) override
    {
        android::CDataSource* const record = m_source->record();
        const ssize_t count = record->readAt(record->handle, offset, data, size);
        for (const int64_t name : m_names) {
            if (count > 0 && name >= offset && name < offset + count)
                static_cast<uint8_t*>(data)[name - offset] = '-';
        }
        return count;
    }
    android::status_t get_size(int64_t* size) override
    {
        android::CDataSource* const record = m_source->record();
        off64_t bytes = 0;
        const android::status_t status = record->getSize(record->handle, &bytes);
        *size = bytes;
        return status;
    }

private:
    const std::shared_ptr<zoflv_host::DataSource> m_source;
    const std::vector<int64_t> m_names;
};

std::string cut(std::string_view text)
{
    if (text.size() <= ReportData::LONGEST_TEXT)
        return std::string(text);
    size_t size = ReportData::LONGEST_TEXT;
    while (size > 0 && (static_cast<uint8_t>(text[size]) & 0xC0) == 0x80) // inside a character
        --size;
    return std::string(text.substr(0, size)) + " ...";
}

/// The text of a value; nothing of an array, an object or a value without content.
std::optional<std::string> text_of(const ScriptTree& tree, const ScriptNode& node)
{
    switch (node.type) {
    case AmfType::NUMBER: {
        char text[40];
        std::snprintf(text, sizeof text, "%.10g", node.number);
        return text;
    }
    case AmfType::BOOLEAN:
        return node.number != 0.0 ? "true" : "false";
    case AmfType::STRING:
    case AmfType::LONG_STRING:
        return cut(tree.text(node));
    default:
        return std::nullopt;
    }
}

} // namespace

void ReportCollector::mark(const ReportMark& mark)
{
    if (m_data.marks.size() < ReportData::MOST_MARKS)
        m_data.marks.push_back(mark);
    else
        ++m_data.more_marks;
}

void ReportCollector::see_frame(const Tag& tag)
{
    const size_t stream = tag.video() ? 0 : 1;
    const StreamKind kind = tag.video() ? StreamKind::VIDEO : StreamKind::AUDIO;
    const int64_t dts = tag.dts_ms();
    m_data.rate.at(dts).bytes[stream] += tag.payload_size();
    PlaceBin& place = m_data.place.at(tag.offset);
    place.dts[stream].add(dts);
    if (tag.audio() && m_last_ms[0])
        place.apart.add(dts - *m_last_ms[0]);
    if (m_last_ms[stream]) {
        const int64_t step = dts - *m_last_ms[stream];
        if (step > Scan::GAP_MS || step < -Scan::GAP_MS)
            mark({step < 0 ? ReportMark::RESET : ReportMark::JUMP, kind, tag.offset, 0, dts, step});
    }
    m_last_ms[stream] = dts;
    if (!tag.video() || !tag.body.keyframe)
        return;
    if (m_key_ms && dts >= *m_key_ms)
        m_data.spacing.at(dts).ms.add(dts - *m_key_ms);
    m_key_ms = dts;
}

void ReportCollector::see_metadata(const Tag& tag, TagWalker& walker)
{
    const View body = walker.body(tag);
    const ScriptTree tree(body.data, body.size);
    const ScriptNode* const event = tree.top(0);
    const ScriptNode* const object = tree.top(1);
    if (!event || !object || tree.text(*event) != "onMetaData")
        return;
    for (const ScriptNode* node = tree.first_inside(*object); node;
         node = tree.next_inside(*object, *node)) {
        if (tree.name(*node) == INDEX_NAME && m_index_names.size() < MOST_INDEXES)
            m_index_names.push_back(tag.body_offset() + node->name_offset);
        const std::optional<std::string> text = text_of(tree, *node);
        if (m_metadata || !text || !node->has_name)
            continue;
        if (m_data.properties.size() < ReportData::MOST_PROPERTIES)
            m_data.properties.push_back({cut(tree.name(*node)), *text});
        else
            ++m_data.more_properties;
    }
    m_metadata = true;
}

void ReportCollector::see(const Item& item, TagWalker& walker)
{
    m_scanner.see(item, walker);
    if (item.kind == ItemKind::LOST)
        mark({ReportMark::LOST, StreamKind::FILE, item.lost.offset, item.lost.size, 0, 0});
    if (item.kind != ItemKind::TAG)
        return;
    const Tag& tag = item.tag;
    if ((tag.audio() || tag.video()) && tag.body.packet == Packet::FRAME && tag.payload_size() > 0)
        see_frame(tag);
    else if (tag.script())
        see_metadata(tag, walker);
}

ReportData make_report(zoflv_host::ExtractorLibrary& plugin,
                       const std::shared_ptr<zoflv_host::DataSource>& source,
                       const std::string& name, const DeviceOptions& options,
                       const Progress& progress)
{
    ReportData data;
    data.name = name;
    data.device = options.profile;
    ReportCollector collector(&data);
    data.verdict = check(plugin, source, options, progress,
                         [&](const Item& item, TagWalker& walker) { collector.see(item, walker); });
    collector.finish();
    const TrackReport* const judged = data.verdict.device.seek_track();
    if (!judged || !judged->seeks_in(SeekMode::PREVIOUS) || collector.index_names().empty())
        return data;
    DeviceOptions fewer = options;
    fewer.all_seeks = false;
    const auto hidden = std::make_shared<HiddenIndexSource>(source, collector.index_names());
    const Verdict other = check(plugin, hidden, fewer, progress);
    const TrackReport& track = other.device.of(judged->kind);
    if (const SeekTest* test = track.seeks_in(SeekMode::PREVIOUS))
        data.seeks_without_index = *test;
    return data;
}

} // namespace zoflv_inspect
