// SPDX-License-Identifier: Apache-2.0
#include "inspect/codec_names.h"
#include "inspect/walker.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/line.h"
#include "tools/script_text.h"

#include <iterator>

namespace {

using namespace zoflv_inspect;

struct TagsOptions {
    std::vector<std::string> files;
    bool json = false;
    bool script = false;
};

constexpr const char* LOST_NAMES[] = {"damage", "zeros", "id3"};
constexpr const char* END_NAMES[] = {"after a tag", "no PreviousTagSize", "inside a tag",
                                     "in lost bytes", "read failed"};
static_assert(std::size(LOST_NAMES) == static_cast<size_t>(LostKind::ID3) + 1, "one per kind");
static_assert(std::size(END_NAMES) == static_cast<size_t>(EndKind::READ_FAILED) + 1,
              "one per kind");

/// @param any  whether the file has a tag
const char* end_name(const End& end, bool any)
{
    if (end.kind == EndKind::AFTER_TAG && !any)
        return end.offset == 0 ? "empty file" : "after the header";
    return END_NAMES[static_cast<size_t>(end.kind)];
}

/// The codec's name, made again only when it changes.
class CodecText {
public:
    const std::string& of(const Tag& tag)
    {
        Kept& kept = m_kept[tag.video() ? 1 : 0];
        if (kept.text.empty() || kept.codec != tag.body.codec) {
            kept.codec = tag.body.codec;
            kept.text = codec_name(tag.video(), tag.body.codec);
        }
        return kept.text;
    }

private:
    struct Kept {
        Codec codec{};
        std::string text;
    };
    Kept m_kept[2];
};

/// What a listing prints of one file.
class Listing {
public:
    virtual ~Listing() = default;
    virtual void begin() {}
    virtual void header(const FileHeader& header, bool inner) = 0;
    virtual void tag(const Tag& tag) = 0;
    virtual void script(const Tag& tag, const ScriptTree& tree) = 0;
    virtual void lost(const LostRange& lost) = 0;
    virtual void end(const End& end, bool any) = 0; ///< whether the file has a tag
    void flush() { m_out.flush(); }

protected:
    LineWriter m_out;
    CodecText m_codec;
};

// -------------------------------------------------------------- For people

// Columns of a line.
constexpr size_t OFFSET_ROOM = 12;
constexpr size_t KIND = OFFSET_ROOM + 2;
constexpr size_t SIZE = KIND + 7;
constexpr size_t SIZE_ROOM = 9;
constexpr size_t TIME = SIZE + SIZE_ROOM + 1;
constexpr size_t TIME_ROOM = 12;
constexpr size_t SHIFT = TIME + TIME_ROOM + 1; // presentation after decoding
constexpr size_t SHIFT_ROOM = 8;
constexpr size_t KEY = SHIFT + SHIFT_ROOM + 2;
constexpr size_t CODEC = KEY + 4;
constexpr size_t PACKET = CODEC + 16;
constexpr size_t NOTES = PACKET + 9;

class TextListing : public Listing {
public:
    TextListing(std::string file, bool titled, bool heading)
        : m_file(std::move(file)), m_titled(titled), m_heading(heading)
    {}

    void begin() override
    {
        if (m_titled)
            m_out.text(printable(m_file)).text(":").end_line();
        if (!m_heading)
            return;
        const auto heading = [this](size_t column, size_t width, const char* text) {
            m_out.column(column);
            const size_t from = m_out.mark();
            m_out.text(text).right(from, width);
        };
        const size_t from = m_out.mark();
        m_out.text("offset").right(from, OFFSET_ROOM).column(KIND).text("type");
        heading(SIZE, SIZE_ROOM, "size");
        heading(TIME, TIME_ROOM, "dts (s)");
        heading(SHIFT, SHIFT_ROOM, "pts-dts");
        m_out.column(KEY).text("key").column(CODEC).text("codec").column(PACKET).text("packet");
        m_out.end_line();
    }
    void header(const FileHeader& header, bool inner) override
    {
        offset(header.offset).text(inner ? "FLV header inside the file" : "FLV header");
        m_out.text(", version ").number(int64_t{header.version});
        m_out.text((header.flags & 5) == 0   ? ", announces nothing"
                   : (header.flags & 5) == 5 ? ", announces audio and video"
                   : (header.flags & 4) != 0 ? ", announces audio"
                                             : ", announces video");
        if (header.data_offset != 9)
            m_out.text(", DataOffset ").number(int64_t{header.data_offset});
        if (!header.previous_tag_size)
            m_out.text(", without PreviousTagSize0");
        m_out.end_line();
    }
    void tag(const Tag& tag) override
    {
        offset(tag.offset);
        if (const char* name = tag_type_name(tag.type()))
            m_out.text(name);
        else
            m_out.text("type ").number(int64_t{tag.type()});
        m_out.column(SIZE);
        size_t from = m_out.mark();
        m_out.number(int64_t{tag.size}).right(from, SIZE_ROOM).column(TIME);
        from = m_out.mark();
        m_out.seconds(tag.dts_ms()).right(from, TIME_ROOM);
        if (tag.body.known)
            body(tag);
        notes(tag);
        m_out.end_line();
    }
    void script(const Tag& tag, const ScriptTree& tree) override
    {
        this->tag(tag);
        print_script(&m_out, tag, tree);
    }
    void lost(const LostRange& lost) override
    {
        offset(lost.offset).text("lost   ");
        const size_t from = m_out.mark();
        m_out.number(lost.size).right(from, SIZE_ROOM).text(" bytes: ");
        m_out.text(lost.kind == LostKind::ZEROS ? "zeros"
                   : lost.kind == LostKind::ID3 ? "an ID3 tag"
                   : lost.tag_header            ? "a tag that leads to no other"
                                                : "no tag");
        m_out.end_line();
    }
    void end(const End& end, bool any) override
    {
        offset(end.offset).text("end, ").text(end_name(end, any)).end_line();
    }

private:
    LineWriter& offset(int64_t value)
    {
        const size_t from = m_out.mark();
        return m_out.number(value).right(from, OFFSET_ROOM).column(KIND);
    }
    void body(const Tag& tag)
    {
        if (tag.body.composition_ms != 0) {
            m_out.column(SHIFT);
            const size_t from = m_out.mark();
            m_out.seconds(tag.body.composition_ms).right(from, SHIFT_ROOM);
        }
        if (tag.video() && tag.body.keyframe)
            m_out.column(KEY).text("key");
        m_out.column(CODEC).text(m_codec.of(tag));
        if (tag.body.packet != Packet::FRAME)
            m_out.column(PACKET).text(packet_name(tag.body.packet));
    }
    void notes(const Tag& tag)
    {
        const char* separator = nullptr;
        const auto note = [&](std::string_view text) -> LineWriter& {
            if (separator)
                m_out.text(separator);
            else
                m_out.column(NOTES);
            separator = ", ";
            return m_out.text(text);
        };
        if (tag.cut)
            note("cut, ").number(int64_t{tag.stored}).text(" bytes are there");
        else if (tag.link == Link::MISSING)
            note("no PreviousTagSize");
        else if (tag.link != Link::RIGHT)
            note("PreviousTagSize ").number(int64_t{tag.previous_tag_size});
        if (tag.filtered())
            note("encrypted");
        if (tag.stream_id != 0)
            note("stream id ").number(int64_t{tag.stream_id});
        if (tag.body.multitrack)
            note("several tracks");
    }

    const std::string m_file;
    const bool m_titled;
    const bool m_heading;
};

// ------------------------------------------------------------ For programs

class JsonListing : public Listing {
public:
    explicit JsonListing(std::string_view file)
    {
        m_begin = "{\"schema_version\":1,\"file\":" +
                  Json(file).dump(-1, ' ', false, Json::error_handler_t::replace) + ",\"kind\":\"";
    }

    void header(const FileHeader& header, bool inner) override
    {
        record(inner ? "inner_header" : "header", header.offset);
        number("version", header.version);
        number("flags", header.flags);
        number("data_offset", header.data_offset);
        number("first_tag_offset", header.end());
        if (header.previous_tag_size)
            number("previous_tag_size_0", header.previous_tag_size_0);
        else
            m_out.text(",\"previous_tag_size_0\":null");
        m_out.text("}").end_line();
    }
    void tag(const Tag& tag) override
    {
        start_tag("tag", tag);
        number("type_code", tag.type());
        flag("filtered", tag.filtered());
        number("stored", tag.stored);
        flag("cut", tag.cut);
        number("timestamp", tag.time);
        number("stream_id", tag.stream_id);
        const BodyInfo& body = tag.body;
        m_out.text(",\"codec\":");
        if (body.known)
            m_out.quoted(m_codec.of(tag));
        else
            m_out.text("null");
        m_out.text(",\"codec_number\":");
        if (body.known && body.codec.fourcc == 0 && !body.enhanced)
            m_out.number(int64_t{body.codec.number});
        else
            m_out.text("null");
        m_out.text(",\"packet\":");
        if (body.known)
            m_out.text("\"").text(packet_name(body.packet)).text("\"");
        else
            m_out.text("null");
        m_out.text(",\"packet_type\":");
        if (body.known && body.packet_type >= 0)
            m_out.number(int64_t{body.packet_type});
        else
            m_out.text("null");
        flag("keyframe", body.keyframe);
        number("payload_size", tag.payload_size());
        m_out.text(",\"previous_tag_size\":");
        if (tag.link == Link::MISSING)
            m_out.text("null");
        else
            m_out.number(int64_t{tag.previous_tag_size});
        m_out.text(",\"link\":\"").text(link_name(tag.link)).text("\"}").end_line();
    }
    void script(const Tag& tag, const ScriptTree& tree) override
    {
        start_tag("script", tag);
        write_script_json(&m_out, tag, tree);
        m_out.text("}").end_line();
    }
    void lost(const LostRange& lost) override
    {
        record("lost", lost.offset);
        number("size", lost.size);
        m_out.text(",\"content\":\"").text(LOST_NAMES[static_cast<size_t>(lost.kind)]).text("\"");
        flag("tag_header", lost.tag_header);
        m_out.text("}").end_line();
    }
    void end(const End& end, bool any) override
    {
        record("end", end.offset);
        flag("complete", end.kind == EndKind::AFTER_TAG && end.offset > 0);
        m_out.text(",\"reason\":\"").text(end_name(end, any)).text("\"}");
        m_out.end_line();
    }

private:
    void record(const char* kind, int64_t offset)
    {
        m_out.text(m_begin).text(kind).text("\",\"offset\":").number(offset);
    }
    void start_tag(const char* kind, const Tag& tag)
    {
        record(kind, tag.offset);
        const char* name = tag_type_name(tag.type());
        m_out.text(",\"type\":\"").text(name ? name : "other").text("\"");
        number("size", tag.size);
        number("dts_us", tag.dts_ms() * 1000);
        number("pts_us", tag.pts_ms() * 1000);
    }
    void number(const char* key, int64_t value)
    {
        m_out.text(",\"").text(key).text("\":").number(value);
    }
    void flag(const char* key, bool value)
    {
        m_out.text(",\"").text(key).text(value ? "\":true" : "\":false");
    }

    std::string m_begin; ///< of every line
};

void list_tags(const TagsOptions& options, const std::string& path, zoflv_host::DataSource& data)
{
    HostSource source(data);
    TagWalker walker(source);
    std::unique_ptr<Listing> listing;
    if (options.json)
        listing = std::make_unique<JsonListing>(path);
    else
        listing = std::make_unique<TextListing>(path, options.files.size() > 1, !options.script);
    listing->begin();
    bool any = false;
    EndKind end = EndKind::AFTER_TAG;
    while (const Item* item = walker.next()) {
        any = any || item->kind == ItemKind::TAG;
        if (item->kind == ItemKind::END)
            end = item->end.kind;
        if (options.script) {
            if (item->kind != ItemKind::TAG || !item->tag.script())
                continue;
            const View body = walker.body(item->tag);
            listing->script(item->tag, ScriptTree(body.data, body.size));
            continue;
        }
        switch (item->kind) {
        case ItemKind::FILE_HEADER:
        case ItemKind::INNER_HEADER:
            listing->header(item->header, item->kind == ItemKind::INNER_HEADER);
            break;
        case ItemKind::TAG:
            listing->tag(item->tag);
            break;
        case ItemKind::LOST:
            listing->lost(item->lost);
            break;
        case ItemKind::END:
            listing->end(item->end, any);
            break;
        }
    }
    listing->flush();
    if (end == EndKind::READ_FAILED)
        throw Failure(EXIT_BAD_FILE, textf("cannot be read from byte %lld on",
                                           static_cast<long long>(walker.file_size())));
    if (!any)
        throw not_flv(data, "no tag was found");
}

} // namespace

Command add_tags(CLI::App& app)
{
    constexpr Help help = {
        "Every tag of the file, past damage, and what is in script tags",
        "  zoflv tags recording.flv\n"
        "  zoflv tags --json recording.flv | jq 'select(.kind == \"lost\")'\n"
        "  zoflv tags --script recording.flv         the metadata with the place of each value",
        "Reads the whole file on its own, not as the device does: after damage it goes on where\n"
        "three linked tags stand. Lost bytes are listed, and are no failure. An empty column\n"
        "\"packet\" means a frame. Offsets and sizes count bytes.",
    };
    const auto options = std::make_shared<TagsOptions>();
    CLI::App* command = add_command(app, "tags", help);
    add_files(command, &options->files);
    command->add_flag("--script", options->script, "Only script tags, with each value in them");
    add_json(command, &options->json);
    return {command, [options](Session&) {
                int worst = EXIT_FINE;
                for (const std::string& file : options->files)
                    attempt_file(&worst, file, options->json, [&] {
                        const auto data = open_source(file);
                        attempt(&worst, file, [&] { list_tags(*options, file, *data); });
                    });
                return worst;
            }};
}
