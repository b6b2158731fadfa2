// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_detectors.h"

#include <cinttypes>
#include <cmath>
#include <iterator>
#include <string_view>

namespace zoflv_inspect {

namespace {

using namespace std::string_view_literals;

constexpr double LONGEST = 4294967.296; // s: what a tag's time can say

struct KnownProperty {
    std::string_view name;
    AmfType type;
};
// What the demuxer knows, in the order in which it compares.
constexpr KnownProperty PROPERTIES[] = {
    {"hasKeyframes", AmfType::BOOLEAN}, {"hasVideo", AmfType::BOOLEAN},
    {"hasMetadata", AmfType::BOOLEAN},  {"hasCuePoints", AmfType::BOOLEAN},
    {"canSeekToEnd", AmfType::BOOLEAN}, {"duration", AmfType::NUMBER},
    {"lasttimestamp", AmfType::NUMBER}, {"lastkeyframetimestamp", AmfType::NUMBER},
    {"filesize", AmfType::NUMBER},      {"datasize", AmfType::NUMBER},
    {"videocodecid", AmfType::NUMBER},  {"width", AmfType::NUMBER},
    {"height", AmfType::NUMBER},        {"framerate", AmfType::NUMBER},
    {"videodatarate", AmfType::NUMBER}, {"videosize", AmfType::NUMBER},
    {"audiocodecid", AmfType::NUMBER},  {"audiosize", AmfType::NUMBER},
    {"audiodatarate", AmfType::NUMBER}, {"audiodelay", AmfType::NUMBER},
    {"keyframes", AmfType::OBJECT},     {"filepositions", AmfType::STRICT_ARRAY},
    {"times", AmfType::STRICT_ARRAY},
};

// Names from a file on their way into a message: what is not plain becomes a dot.
std::string plain(std::string_view name)
{
    std::string text(name.substr(0, 40));
    for (char& c : text) {
        if (c < ' ' || c > '~')
            c = '.';
    }
    return text;
}

/// The known property that a name stands for: one that begins with it.
const KnownProperty* known_property(std::string_view name)
{
    for (const KnownProperty& property : PROPERTIES) {
        if (property.name.substr(0, name.size()) == name)
            return &property;
    }
    return nullptr;
}

bool is_on_meta_data(const ScriptTree& tree)
{
    const ScriptNode* name = tree.top(0);
    return name && name->type == AmfType::STRING && tree.text(*name) == "onMetaData"sv;
}

} // namespace

void MetadataCheck::see(const Tag& tag, TagWalker& walker, bool first)
{
    constexpr uint32_t ENOUGH_FOR_NAME = 64;
    if (tag.type_byte != TAG_SCRIPT)
        return; // encrypted and the like
    const View body = first ? walker.body(tag) : walker.body(tag, 0, ENOUGH_FOR_NAME);
    const ScriptTree tree(body.data, body.size);
    if (!is_on_meta_data(tree)) {
        m_sink.add(Rule::SCRIPT_SEVERAL, StreamKind::FILE, tag);
        return;
    }
    if (m_any)
        m_sink.add(Rule::META_TWICE, StreamKind::FILE, tag);
    else if (!first)
        m_sink.add(Rule::META_NOT_FIRST, StreamKind::FILE, tag);
    else
        check_first(tag, tree, body);
    m_any = true;
}

void MetadataCheck::check_first(const Tag& tag, const ScriptTree& tree, const View& body)
{
    const ScriptNode* root = tree.top(1);
    if (!root || root->type != AmfType::ECMA_ARRAY) {
        const bool object = root && root->type == AmfType::OBJECT;
        m_sink.add(object ? Rule::META_OBJECT : Rule::META_UNREADABLE, StreamKind::FILE, tag);
        return;
    }
    m_known.read = ask_metadata(body);
    m_known.offset = tag.offset;
    if (const ScriptNode* duration = tree.property(*root, "duration")) {
        m_known.has_duration = true;
        m_known.written_duration =
            duration->type == AmfType::NUMBER ? duration->number : m_known.read.duration;
    }
    check_properties(tag, tree, *root);
}

void MetadataCheck::check_properties(const Tag& tag, const ScriptTree& tree, const ScriptNode& root)
{
    const bool all_read = root.found <= root.count;
    if (root.found != root.count) {
        if (Finding* finding = m_sink.add(Rule::META_COUNT, StreamKind::FILE, tag)) {
            finding->detail =
                format("it says %" PRIu32 " and has %" PRIu32, root.count, root.found);
            if (all_read) { // what the demuxer reads beyond the end harms nothing
                finding->level = Level::NOTICE;
                finding->explains = SHOWN_NOTHING;
            }
        }
    }
    if (tree.error() != ScriptError::NONE && !tag.cut) {
        if (Finding* finding = m_sink.add(Rule::META_UNREADABLE, StreamKind::FILE, tag))
            finding->detail = format("%s at byte %" PRIu32 " of the tag's body",
                                     script_error_name(tree.error()), tree.error_offset());
    }
    for (const ScriptNode& node : tree.nodes()) {
        if (!node.has_name)
            continue;
        const std::string_view name = tree.name(node);
        const KnownProperty* property = known_property(name);
        if (!property)
            continue;
        Finding* finding = nullptr;
        if (property->name != name)
            finding = m_sink.add(Rule::META_PREFIX, StreamKind::FILE, tag);
        else if (property->type != node.type)
            finding = m_sink.add(Rule::META_TYPE, StreamKind::FILE, tag);
        if (finding && finding->rule == Rule::META_PREFIX)
            finding->detail =
                "\"" + plain(name) + "\" replaces \"" + std::string(property->name) + "\"";
        else if (finding)
            finding->detail = plain(name) + " is a " + amf_type_name(node.type);
    }
}

void MetadataCheck::finish()
{
    if (!m_any)
        m_sink.add(Rule::META_NONE, StreamKind::FILE);
    check_duration();
}

void MetadataCheck::check_duration()
{
    const double duration = m_known.read.duration;
    const double written = m_known.written_duration;
    if (std::isnan(written) || duration < 0 || duration > LONGEST) {
        if (Finding* finding = m_sink.add(Rule::DURATION_ABSURD, StreamKind::FILE, m_known.offset))
            finding->detail = format("%g s", std::isnan(written) ? written : duration);
    } else if (!(duration > 0)) {
        m_sink.add(m_known.has_duration ? Rule::DURATION_ZERO : Rule::DURATION_NONE,
                   StreamKind::FILE, m_known.offset);
    }
}

} // namespace zoflv_inspect
