// SPDX-License-Identifier: Apache-2.0
#include "inspect/head.h"

#include "inspect/demuxer_query.h"
#include "inspect/walker.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr int64_t max_bytes =
    17 << 20;                 // the largest body, of 2^24 - 1 bytes, and what is before it
constexpr int max_tags = 100; // as many as the demuxer looks at for a stream
constexpr size_t window = 16 * 1024;
constexpr uint32_t aac_header = 2; // bytes before an AudioSpecificConfig
constexpr uint8_t codec_aac = 10;
constexpr uint8_t codec_vp6 = 4;
constexpr uint8_t codec_vp6_alpha = 5;
constexpr uint8_t codec_avc = 7;

/// The beginning of a source, so that a walk over damage ends soon.
class Beginning : public ByteSource {
public:
    explicit Beginning(ByteSource& source) : m_source(source) {}

    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        const auto left = static_cast<size_t>(std::max<int64_t>(max_bytes - offset, 0));
        return m_source.read_at(offset, buffer, std::min(size, left));
    }
    int64_t size() override { return std::min(m_source.size(), max_bytes); }

private:
    ByteSource& m_source;
};

bool is_metadata(const ScriptTree& tree)
{
    const ScriptNode* const event = tree.top(0);
    return event && event->type == AmfType::STRING && tree.text(*event) == "onMetaData";
}

void take_script(Head* head, TagWalker* walker, const Tag& tag)
{
    if (head->metadata_tag)
        return;
    const View body = walker->body(tag);
    ScriptTree tree(body.data, body.size);
    if (!is_metadata(tree))
        return;
    head->metadata = std::move(tree);
    head->metadata_tag = tag;
}

/// Returns whether later audio tags can tell no more.
bool take_audio(Head* head, TagWalker* walker, const Tag& tag)
{
    if (!tag.body.known || tag.body.enhanced || tag.body.codec.number != codec_aac)
        return tag.body.known;
    if (tag.body.packet != Packet::CONFIG)
        return false;
    const View body = walker->body(tag, aac_header, 64); // more than the longest in use
    head->aac_config.assign(body.data, body.data + body.size);
    return true;
}

/// Returns whether later video tags can tell no more.
bool take_video(Head* head, TagWalker* walker, const Tag& tag)
{
    constexpr uint32_t enough = 64; // for a frame's header
    const BodyInfo& body = tag.body;
    if (!body.known || body.enhanced)
        return body.known;
    const bool avc = body.codec.number == codec_avc;
    if (avc && body.packet != Packet::CONFIG)
        return false;
    const View view = walker->body(tag, 0, avc ? tag.stored : enough);
    const ReadStream stream = ask_stream(TAG_VIDEO, view);
    head->video_sized = stream.opened && stream.width > 0 && stream.height > 0;
    const bool vp6 = body.codec.number == codec_vp6 || body.codec.number == codec_vp6_alpha;
    return head->video_sized || !vp6; // of which it is in keyframes alone
}

} // namespace

Head read_head(ByteSource& source)
{
    Head head;
    Beginning beginning(source);
    TagWalker walker(beginning, window);
    bool audio_done = false;
    bool video_done = false;
    for (int tags = 0; tags < max_tags;) {
        const Item* const item = walker.next();
        if (!item || item->kind == ItemKind::END)
            break;
        if (item->kind == ItemKind::FILE_HEADER)
            head.header = item->header;
        if (item->kind != ItemKind::TAG)
            continue;
        ++tags;
        const Tag tag = item->tag;
        if (tag.script())
            take_script(&head, &walker, tag);
        else if (tag.audio() && !audio_done)
            audio_done = take_audio(&head, &walker, tag);
        else if (tag.video() && !video_done)
            video_done = take_video(&head, &walker, tag);
        if (head.metadata_tag && audio_done && video_done)
            break;
    }
    return head;
}

const ScriptNode* metadata_properties(const Head& head)
{
    const ScriptNode* const node = head.metadata_tag ? head.metadata.top(1) : nullptr;
    const bool holds =
        node && (node->type == AmfType::ECMA_ARRAY || node->type == AmfType::OBJECT ||
                 node->type == AmfType::TYPED_OBJECT);
    return holds ? node : nullptr;
}

std::optional<std::string_view> made_by(const Head& head)
{
    const ScriptNode* const properties = metadata_properties(head);
    if (!properties)
        return std::nullopt;
    for (const char* const name : {"encoder", "metadatacreator", "creator"}) {
        const ScriptNode* const value = head.metadata.property(*properties, name);
        if (value && (value->type == AmfType::STRING || value->type == AmfType::LONG_STRING))
            return head.metadata.text(*value);
    }
    return std::nullopt;
}

} // namespace zoflv_inspect
