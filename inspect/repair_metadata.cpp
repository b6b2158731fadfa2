// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_metadata.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

namespace zoflv_inspect {

namespace {

using namespace std::string_view_literals;
using Bytes = std::vector<uint8_t>;

constexpr size_t MOST_OLD_BYTES = 4 * 1024 * 1024; // the rest of a tag is for the index
constexpr size_t ENTRY_BYTES = 2 * 9;              // a position and a time, each with its marker
constexpr uint8_t OBJECT_END[] = {0, 0, 9};

enum class Known : uint8_t { COPIED, COMPUTED };

struct KnownProperty {
    const char* name;
    AmfType type;
    Known known;
};

// What the demuxer keeps, by the first characters of a name.
constexpr KnownProperty PROPERTIES[] = {
    {"hasKeyframes", AmfType::BOOLEAN, Known::COMPUTED},
    {"hasVideo", AmfType::BOOLEAN, Known::COMPUTED},
    {"hasMetadata", AmfType::BOOLEAN, Known::COMPUTED},
    {"hasCuePoints", AmfType::BOOLEAN, Known::COPIED},
    {"canSeekToEnd", AmfType::BOOLEAN, Known::COMPUTED},
    {"duration", AmfType::NUMBER, Known::COMPUTED},
    {"lasttimestamp", AmfType::NUMBER, Known::COMPUTED},
    {"lastkeyframetimestamp", AmfType::NUMBER, Known::COMPUTED},
    {"filesize", AmfType::NUMBER, Known::COMPUTED},
    {"datasize", AmfType::NUMBER, Known::COMPUTED},
    {"videocodecid", AmfType::NUMBER, Known::COPIED},
    {"width", AmfType::NUMBER, Known::COPIED},
    {"height", AmfType::NUMBER, Known::COPIED},
    {"framerate", AmfType::NUMBER, Known::COPIED},
    {"videodatarate", AmfType::NUMBER, Known::COPIED},
    {"videosize", AmfType::NUMBER, Known::COMPUTED},
    {"audiocodecid", AmfType::NUMBER, Known::COPIED},
    {"audiosize", AmfType::NUMBER, Known::COMPUTED},
    {"audiodatarate", AmfType::NUMBER, Known::COPIED},
    {"audiodelay", AmfType::NUMBER, Known::COPIED},
    {"keyframes", AmfType::OBJECT, Known::COMPUTED},
    {"filepositions", AmfType::STRICT_ARRAY, Known::COMPUTED},
    {"times", AmfType::STRICT_ARRAY, Known::COMPUTED},
};
// Computed too, though the demuxer does not know them.
constexpr std::string_view MORE_COMPUTED[] = {"hasAudio", "lastkeyframelocation"};

// The longest name that does not end the demuxer's reading.
constexpr size_t LONGEST_NAME = 32;
// The longest string, since its length is read with a sign.
constexpr uint32_t LONGEST_STRING = 32767;

/// The known property that a name is taken for: the comparison goes over the name's own length, and
/// ends at a zero.
const KnownProperty* taken_for(std::string_view name)
{
    const std::string text(name);
    for (const KnownProperty& property : PROPERTIES) {
        if (std::strncmp(property.name, text.c_str(), text.size()) == 0)
            return &property;
    }
    return nullptr;
}

bool computed_elsewhere(std::string_view name)
{
    return std::find(std::begin(MORE_COMPUTED), std::end(MORE_COMPUTED), name) !=
           std::end(MORE_COMPUTED);
}

/// Whether the demuxer knows where a value ends, and so those inside it.
bool is_skipped_right(const ScriptNode& node, bool in_array)
{
    if (node.has_name && node.name_size > LONGEST_NAME)
        return false;
    switch (node.type) {
    case AmfType::NUMBER:
    case AmfType::BOOLEAN:
    case AmfType::DATE:
        return true;
    case AmfType::STRING:
        return node.text_size <= LONGEST_STRING;
    case AmfType::NULL_VALUE:
    case AmfType::UNDEFINED:
        return !in_array; // an array ends at it
    case AmfType::OBJECT:
        return true;
    case AmfType::ECMA_ARRAY:
        return node.count == node.found && node.count > 0;
    case AmfType::STRICT_ARRAY:
        return node.count == node.found;
    default:
        return false;
    }
}

bool all_skipped_right(const ScriptTree& tree, const ScriptNode& top)
{
    const std::vector<ScriptNode>& nodes = tree.nodes();
    const auto first = static_cast<size_t>(&top - nodes.data());
    for (size_t i = first; i < top.next; ++i) {
        const ScriptNode& node = nodes[i];
        if (!is_skipped_right(node, i > first && !node.has_name))
            return false;
    }
    return true;
}

bool is_whole(const ScriptTree& tree, const ScriptNode& top)
{
    const std::vector<ScriptNode>& nodes = tree.nodes();
    const auto first = static_cast<size_t>(&top - nodes.data());
    if (tree.error() != ScriptError::NONE && top.end > tree.error_offset())
        return false;
    for (size_t i = first; i < top.next; ++i) {
        const AmfType type = nodes[i].type;
        const bool holds = type == AmfType::OBJECT || type == AmfType::ECMA_ARRAY ||
                           type == AmfType::STRICT_ARRAY || type == AmfType::TYPED_OBJECT;
        if ((holds && !nodes[i].closed) || type == AmfType::AVM_PLUS)
            return false;
    }
    return true;
}

/// The object or array after the name, null when the body is not onMetaData. Recorders that write
/// what a publisher sent leave its command in front.
const ScriptNode* metadata_root(const ScriptTree& tree)
{
    size_t at = 0;
    const auto is = [&](std::string_view text) {
        const ScriptNode* node = tree.top(at);
        return node && node->type == AmfType::STRING && tree.text(*node) == text;
    };
    if (is("@setDataFrame"sv))
        ++at;
    return is("onMetaData"sv) ? tree.top(at + 1) : nullptr;
}

class BodyWriter {
public:
    void u(uint64_t value, int bytes)
    {
        for (int i = bytes - 1; i >= 0; --i)
            m_out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    void raw(const uint8_t* data, size_t size) { m_out.insert(m_out.end(), data, data + size); }
    void marker(AmfType type) { u(static_cast<uint8_t>(type), 1); }
    void name(std::string_view text)
    {
        u(text.size(), 2);
        raw(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    }
    void number(double value)
    {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        marker(AmfType::NUMBER);
        u(bits, 8);
    }
    void number(std::string_view text, double value)
    {
        name(text);
        number(value);
        ++m_properties;
    }
    void flag(std::string_view text, bool value)
    {
        name(text);
        marker(AmfType::BOOLEAN);
        u(value, 1);
        ++m_properties;
    }
    void end() { raw(OBJECT_END, sizeof OBJECT_END); }

    uint32_t m_properties = 0;
    Bytes m_out;
};

/// Seconds that are the same number of 100-ns units when they are cut to those.
double exact_seconds(int32_t ms)
{
    double seconds = ms / 1000.0;
    if (seconds * 1e7 < ms * 1e4)
        seconds = std::nextafter(seconds, HUGE_VAL);
    return seconds;
}

void write_index(const std::vector<IndexEntry>& index, BodyWriter* out)
{
    out->name("keyframes");
    out->marker(AmfType::OBJECT);
    for (const bool times : {false, true}) {
        out->name(times ? "times" : "filepositions");
        out->marker(AmfType::STRICT_ARRAY);
        out->u(index.size(), 4);
        for (const IndexEntry& entry : index)
            out->number(times ? exact_seconds(entry.time) : static_cast<double>(entry.offset));
    }
    out->end();
    ++out->m_properties;
}

void write_figures(const NewFigures& figures, BodyWriter* out)
{
    out->number("duration", figures.duration);
    out->number("filesize", figures.filesize);
    out->number("datasize", figures.datasize);
    out->number("videosize", figures.videosize);
    out->number("audiosize", figures.audiosize);
    out->number("lasttimestamp", figures.lasttimestamp);
    out->flag("hasVideo", figures.has_video);
    out->flag("hasAudio", figures.has_audio);
    out->flag("hasMetadata", true);
    out->flag("hasKeyframes", !figures.index.empty());
    out->flag("canSeekToEnd", figures.can_seek_to_end);
    if (figures.last_keyframe) {
        out->number("lastkeyframetimestamp", exact_seconds(figures.last_keyframe->time));
        out->number("lastkeyframelocation", static_cast<double>(figures.last_keyframe->offset));
    }
    if (!figures.index.empty())
        write_index(figures.index, out);
}

} // namespace

void IndexCollector::add(const IndexEntry& entry)
{
    if (entry.time <= m_last)
        return;
    m_last = entry.time;
    if (m_seen++ % m_stride != 0)
        return;
    m_entries.push_back(entry);
    if (m_entries.size() <= m_most)
        return;
    size_t kept = 0;
    for (size_t i = 0; i < m_entries.size(); i += 2)
        m_entries[kept++] = m_entries[i];
    m_entries.resize(kept);
    m_stride *= 2;
}

bool RepairMetadata::is_metadata(const View& body)
{
    constexpr size_t ENOUGH_FOR_NAMES = 64;
    const ScriptTree tree(body.data, std::min(body.size, ENOUGH_FOR_NAMES));
    return metadata_root(tree) != nullptr;
}

void RepairMetadata::take(const View& body)
{
    constexpr size_t MOST_NAMES = 100; // told of those that are dropped
    const ScriptTree tree(body.data, body.size);
    const ScriptNode* root = metadata_root(tree);
    if (!root || (root->type != AmfType::OBJECT && root->type != AmfType::ECMA_ARRAY))
        return;
    const auto drop = [&](std::string_view name, const char* why) {
        if (m_dropped.size() < MOST_NAMES)
            m_dropped.push_back(std::string(name.substr(0, 64)) + " (" + why + ")");
    };
    std::map<const KnownProperty*, const ScriptNode*> counting; // of several the last one
    for (const ScriptNode* node = tree.first_inside(*root); node;
         node = tree.next_inside(*root, *node)) {
        const KnownProperty* const known = taken_for(tree.name(*node));
        if (known && tree.name(*node) == known->name)
            counting[known] = node;
    }
    Bytes last; // one value whose end the demuxer does not find does no harm at the end
    for (const ScriptNode* node = tree.first_inside(*root); node;
         node = tree.next_inside(*root, *node)) {
        const std::string_view name = tree.name(*node);
        const KnownProperty* const known = taken_for(name);
        if (known ? known->known == Known::COMPUTED && name == known->name
                  : computed_elsewhere(name))
            continue; // in its place comes the new one
        const uint32_t from = node->name_offset - 2;
        const size_t size = node->end - from;
        if (known && name != known->name)
            drop(name, "it would be taken for another property");
        else if (known && node->type != known->type)
            drop(name, "it is of the wrong type");
        else if (known && counting[known] != node)
            drop(name, "it is there again");
        else if (!is_whole(tree, *node))
            drop(name, "it is cut");
        else if (m_kept_bytes + size > MOST_OLD_BYTES)
            drop(name, "the metadata would be too large");
        else if (all_skipped_right(tree, *node))
            m_kept.emplace_back(body.data + from, body.data + node->end);
        else if (last.empty())
            last.assign(body.data + from, body.data + node->end);
        else
            drop(name, "devices would not find its end");
        m_kept_bytes += size;
    }
    if (!last.empty())
        m_kept.push_back(std::move(last));
}

uint32_t RepairMetadata::body_size(size_t entries, bool keyframe) const
{
    NewFigures figures;
    if (keyframe)
        figures.last_keyframe = IndexEntry{};
    if (entries > 0)
        figures.index.resize(1);
    const size_t more = entries > 0 ? (entries - 1) * ENTRY_BYTES : 0;
    return static_cast<uint32_t>(body(figures).size() + more);
}

size_t RepairMetadata::most_entries() const
{
    return (LARGEST_BODY - body_size(1, true)) / ENTRY_BYTES + 1;
}

std::vector<uint8_t> RepairMetadata::body(const NewFigures& figures) const
{
    BodyWriter values;
    write_figures(figures, &values);
    BodyWriter out;
    out.marker(AmfType::STRING);
    out.name("onMetaData");
    out.marker(AmfType::ECMA_ARRAY);
    out.u(values.m_properties + m_kept.size(), 4);
    out.raw(values.m_out.data(), values.m_out.size());
    for (const Bytes& kept : m_kept)
        out.raw(kept.data(), kept.size());
    out.end();
    return std::move(out.m_out);
}

} // namespace zoflv_inspect
