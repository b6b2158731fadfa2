// SPDX-License-Identifier: Apache-2.0
// Walks over made files: what is found where, and what it costs.
#include "inspect/codec_names.h"
#include "inspect/scan.h"
#include "inspect/tag_body.h"
#include "inspect/walker.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace zoflv_inspect;

namespace {

// One letter for each item, its size, and what is notable: "H13 v27 a20 L100zeros v27cut E".
std::string item_text(const Item& item)
{
    static constexpr const char* links[] = {"", "missing", "zero", "body", "+4", "+15", "other"};
    static constexpr const char* lost[] = {"", "zeros", "id3"};
    static constexpr const char* ends[] = {"", "nolink", "cut", "lost", "failed"};
    const auto index = [](auto value) { return static_cast<size_t>(value); };
    switch (item.kind) {
    case ItemKind::FILE_HEADER:
        return "H" + std::to_string(item.header.stored);
    case ItemKind::INNER_HEADER:
        return "I" + std::to_string(item.header.stored);
    case ItemKind::TAG: {
        const Tag& t = item.tag;
        const std::string type = t.audio()    ? "a"
                                 : t.video()  ? "v"
                                 : t.script() ? "s"
                                              : "t" + std::to_string(t.type());
        return type + std::to_string(t.end() - t.offset) + (t.cut ? "cut" : links[index(t.link)]) +
               (t.filtered() ? "filtered" : "");
    }
    case ItemKind::LOST:
        return "L" + std::to_string(item.lost.size) + lost[index(item.lost.kind)];
    case ItemKind::END:
        break;
    }
    return std::string("E") + ends[index(item.end.kind)];
}

struct Walked {
    std::string text;
    WalkCost cost;
};

// Also checks that the items cover the file.
Walked walk(const Bytes& bytes, size_t window = TagWalker::DEFAULT_WINDOW)
{
    MemorySource source(bytes.data(), bytes.size());
    TagWalker walker(source, window);
    std::string text;
    int64_t at = 0;
    while (const Item* item = walker.next()) {
        const bool header =
            item->kind == ItemKind::FILE_HEADER || item->kind == ItemKind::INNER_HEADER;
        const bool tag = item->kind == ItemKind::TAG;
        EXPECT_EQ(at, header                         ? item->header.offset
                      : tag                          ? item->tag.offset
                      : item->kind == ItemKind::LOST ? item->lost.offset
                                                     : item->end.offset);
        at = header                         ? item->header.end()
             : tag                          ? item->tag.end()
             : item->kind == ItemKind::LOST ? item->lost.end()
                                            : at;
        text += (text.empty() ? "" : " ") + item_text(*item);
    }
    EXPECT_EQ(at, static_cast<int64_t>(bytes.size()));
    return {text, walker.cost()};
}

// A tag with any PreviousTagSize.
Bytes tag_with_link(uint8_t type, const Bytes& body, const Bytes& link, uint32_t stream_id = 0)
{
    const Bytes whole = FlvBuilder().tag(type, 0, body, stream_id).bytes();
    return cat({cut(whole, whole.size() - 4), link});
}

Bytes tags(int count)
{
    FlvBuilder flv;
    for (int i = 0; i < count; ++i)
        flv.tag(i % 2 ? 8 : 9, static_cast<uint32_t>(i) * 20,
                i % 2 ? aac_tag(fill(3)) : avc_tag({fill(3)}));
    return flv.bytes();
}

const Bytes header = FlvBuilder().header().bytes();
const Bytes video = tag_with_link(9, fill(5, 0x22), be(16, 4));

Bytes wrong_links(const Bytes& link)
{
    const Bytes one = tag_with_link(9, fill(5, 0x22), link);
    return cat({header, one, one, one});
}

TEST(InspectWalker, FindsWhatIsThere)
{
    const Bytes noise =
        cat({fill(100, 0x40), hex("08 00 00 05 09 12 46 4C 56 01"), fill(40, 0x80)});
    Bytes damaged_size = cat({header, video, video, tags(4)});
    damaged_size[13 + 20 + 1] = 0xFF; // of the second tag, past the end
    Bytes damaged_type = cat({header, video, video, tags(4)});
    damaged_type[13 + 20] = 0;
    Bytes damaged_inside = cat({header, video, tags(6)});
    std::fill(damaged_inside.begin() + 40, damaged_inside.begin() + 70, uint8_t{0x55});
    const struct {
        const char* name;
        Bytes bytes;
        const char* text;
    } cases[] = {
        {"nothing", {}, "E"},
        {"one byte", {'F'}, "L1 Elost"},
        {"part of a header", cut(header, 8), "L8 Elost"},
        {"header without PreviousTagSize0", cut(header, 9), "H9 E"},
        {"header alone", header, "H13 E"},
        {"sound", cat({header, tags(3)}), "H13 v27 a20 v27 E"},
        {"no header", tags(3), "v27 a20 v27 E"},
        {"no PreviousTagSize0", cat({cut(header, 9), tags(2)}), "H9 v27 a20 E"},
        {"longer header", cat({FlvBuilder().header(5, 12).bytes(), fill(3), tags(1)}), "H16 v27 E"},
        {"absurd DataOffset", cat({FlvBuilder().header(5, 0xFFFFFFFF).bytes(), tags(1)}),
         "H13 v27 E"},
        {"damage after the header", cat({header, fill(30, 1), tags(3)}), "H13 L30 v27 a20 v27 E"},
        {"last PreviousTagSize missing", cut(cat({header, video}), 13 + 16),
         "H13 v16missing Enolink"},
        {"last PreviousTagSize cut", cut(cat({header, video}), 13 + 18), "H13 v18missing Enolink"},
        {"last body cut", cut(cat({header, video, video}), 13 + 20 + 12), "H13 v20 v12cut Ecut"},
        {"last body gone", cut(cat({header, video, video}), 13 + 20 + 11), "H13 v20 v11cut Ecut"},
        {"last header cut", cut(cat({header, video, video}), 13 + 20 + 4), "H13 v20 L4 Elost"},
        {"links 0", wrong_links(be(0, 4)), "H13 v20zero v20zero v20zero E"},
        {"links + 4", wrong_links(be(20, 4)), "H13 v20+4 v20+4 v20+4 E"},
        {"links + 15", wrong_links(be(31, 4)), "H13 v20+15 v20+15 v20+15 E"},
        {"links of the body", wrong_links(be(5, 4)), "H13 v20body v20body v20body E"},
        {"links of no sense", wrong_links(be(777, 4)), "H13 v20other v20other v20other E"},
        {"no links", wrong_links({}), "H13 v16missing v16missing v16missing Enolink"},
        {"links 0, then damage", cat({wrong_links(be(0, 4)), noise, wrong_links(be(0, 4))}),
         "H13 v20zero v20zero v20zero L150 I13 v20zero v20zero v20zero E"},
        {"glued", cat({header, tags(1), header, tags(1)}), "H13 v27 I13 v27 E"},
        {"glued after a cut tag", cat({header, cut(tags(1), 20), header, tags(1)}),
         "H13 L20 I13 v27 E"},
        {"zeros at the end", cat({header, tags(1), Bytes(5000, 0)}), "H13 v27 L5000zeros Elost"},
        {"noise at the end", cat({header, tags(1), noise}), "H13 v27 L150 Elost"},
        {"ID3 in front", cat({ascii("ID3"), fill(50, 1), header, tags(1)}), "L53id3 H13 v27 E"},
        {"size damaged", damaged_size, "H13 v20 L20 v27 a20 v27 a20 E"},
        {"type damaged", damaged_type, "H13 v20 t020 v27 a20 v27 a20 E"},
        {"hole", damaged_inside, "H13 v20 L47 v27 a20 v27 a20 E"},
        {"bytes removed", cat({header, video, cut(tags(2), 35), tags(3)}),
         "H13 v20 v27 L8 v27 a20 v27 E"},
        {"the last tag after damage", cat({header, noise, video}), "H13 L150 v20 E"},
        {"two tags after damage, the last one cut", cat({header, noise, video, cut(video, 15)}),
         "H13 L150 v20 v15cut Ecut"},
        {"a plausible header without a link", cat({header, noise, cut(video, 15)}),
         "H13 L165 Elost"},
        {"filtered, stream 7, unknown type",
         cat({header, tag_with_link(0x29, fill(5), be(16, 4)),
              tag_with_link(8, fill(5), be(16, 4), 7), tag_with_link(8, fill(5), be(0, 4), 7),
              video, tag_with_link(15, fill(5), be(16, 4)), video}),
         "H13 v20filtered a20 a20zero v20 t1520 v20 E"},
        {"empty bodies",
         cat({header, tag_with_link(8, {}, be(11, 4)), tag_with_link(9, {}, be(11, 4))}),
         "H13 a15 v15 E"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(walk(c.bytes).text, c.text) << c.name;
        EXPECT_EQ(walk(c.bytes, 128).text, c.text) << c.name << ", with a small window";
    }
}

Bytes repeated(const Bytes& unit, size_t size)
{
    Bytes out;
    while (out.size() < size)
        out.insert(out.end(), unit.begin(), unit.end());
    return out;
}

TEST(InspectWalker, WorkIsLinear)
{
    constexpr size_t window = 1024;
    const struct {
        const char* name;
        Bytes unit;
    } cases[] = {
        {"zeros", {0}},
        {"nothing but headers that lead far", hex("08 00 40 00 00 00 00 00 00 00 00")},
        {"those that lead near", hex("08 00 00 20 00 00 00 00 00 00 00")},
        {"type bytes", {8}},
        {"FLV headers", hex("46 4C 56 01 05 00 00 00 09 00 00 00 00")},
        {"FLV headers before headers that lead far",
         hex("46 4C 56 01 05 00 00 00 09 00 00 00 00 08 00 40 00 00 00 00 00 00 00 00")},
        {"empty tags, then a header that leads far",
         cat({tag_with_link(8, {}, be(11, 4)), tag_with_link(8, {}, be(11, 4)),
              hex("08 00 40 00 00 00 00 00 00 00 00")})},
    };
    for (const auto& c : cases) {
        for (const size_t size : {size_t{50000}, size_t{200000}}) {
            const Bytes bytes = cat({header, tags(3), repeated(c.unit, size)});
            const WalkCost cost = walk(bytes, window).cost;
            EXPECT_LE(cost.bytes_read, 3 * bytes.size() + 64 * window) << c.name;
            EXPECT_LE(cost.reads, bytes.size() / 16 + 2048) << c.name;
            EXPECT_LE(cost.candidates, bytes.size()) << c.name;
        }
    }
}

// A file that grows while it is read, or cannot be read on.
class OddSource : public ByteSource {
public:
    explicit OddSource(Bytes bytes) : m_bytes(std::move(bytes)) {}

    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        if (offset + static_cast<int64_t>(size) > fails_at)
            return -1;
        MemorySource source(m_bytes.data(), std::min(present, m_bytes.size()));
        return source.read_at(offset, buffer, size);
    }
    int64_t size() override
    {
        present = std::min(present + grows, m_bytes.size());
        return claimed.value_or(static_cast<int64_t>(present));
    }

    std::optional<int64_t> claimed{};
    int64_t fails_at = INT64_MAX;
    size_t present = SIZE_MAX / 2;
    size_t grows = 0;

private:
    const Bytes m_bytes;
};

std::string walk_odd(OddSource& source)
{
    TagWalker walker(source, 128);
    std::string text;
    while (const Item* item = walker.next())
        text += (text.empty() ? "" : " ") + item_text(*item);
    return text;
}

TEST(InspectWalker, SourcesThatGrowShrinkAndFail)
{
    const Bytes bytes = cat({header, tags(20)});
    OddSource grows(bytes);
    grows.present = 13 + 27 + 8; // inside the second tag's header
    grows.grows = 5;
    const std::string whole = walk(bytes).text;
    EXPECT_EQ(walk_odd(grows), whole);
    OddSource stalls(bytes);
    stalls.present = 13 + 27 + 8;
    EXPECT_EQ(walk_odd(stalls), "H13 v27 L8 Elost");

    OddSource shrinks(bytes);
    shrinks.claimed = 1 << 20;
    EXPECT_EQ(walk_odd(shrinks), whole);

    OddSource fails(bytes);
    fails.fails_at = 300;
    const std::string failed = walk_odd(fails);
    EXPECT_EQ(failed.substr(failed.size() - 7), "Efailed");
    EXPECT_EQ(failed.substr(0, 30), whole.substr(0, 30));

    OddSource unknown(bytes);
    unknown.claimed = -1;
    EXPECT_EQ(walk_odd(unknown), "Efailed");
}

TEST(InspectWalker, GivesBodies)
{
    const Bytes body = fill(1000);
    const Bytes bytes = cat({header, tag_with_link(9, body, be(1011, 4)), tags(1)});
    for (const size_t window : {size_t{128}, TagWalker::DEFAULT_WINDOW}) {
        MemorySource source(bytes.data(), bytes.size());
        TagWalker walker(source, window);
        walker.next();
        const Tag tag = walker.next()->tag;
        const View whole = walker.body(tag);
        EXPECT_EQ(Bytes(whole.data, whole.data + whole.size), body);
        const View end = walker.body(tag, 998, 50);
        EXPECT_EQ(Bytes(end.data, end.data + end.size), Bytes(body.end() - 2, body.end()));
        EXPECT_EQ(walker.body(tag, 1000, 1).size, 0U);
        EXPECT_EQ(item_text(*walker.next()), "v27"); // none the worse for it

        MemorySource short_source(bytes.data(), 13 + 11 + 900);
        TagWalker short_walker(short_source, window);
        short_walker.next();
        const Tag cut_tag = short_walker.next()->tag; // after a search for another in its body
        EXPECT_TRUE(cut_tag.cut && cut_tag.body.known);
        EXPECT_EQ(short_walker.body(cut_tag).size, 900U);
    }
}

TEST(InspectWalker, ReadsTheFirstBytesOfBodies)
{
    const struct {
        const char* name;
        uint8_t type;
        const char* body;
        const char* text; // codec, packet, packet type, key, composition, payload
    } cases[] = {
        {"H.263", 9, "12 FF", "Sorenson H.263 frame -1 key 0 1"},
        {"inter frame", 9, "24 FF", "VP6 frame -1 - 0 1"},
        {"command", 9, "57 00", "H.264 command -1 - 0 1"},
        {"AVC frame", 9, "27 01 00 00 43 FF", "H.264 frame 1 - 67 5"},
        {"AVC, presented before", 9, "17 01 FF FF FE FF", "H.264 frame 1 key -2 5"},
        {"AVC configuration", 9, "17 00 00 00 43 FF", "H.264 config 0 key 0 5"},
        {"AVC end", 9, "17 02 00 00 00", "H.264 end 2 key 0 5"},
        {"AVC, unknown packet", 9, "17 03 00 00 00", "H.264 unknown 3 key 0 5"},
        {"AVC, cut", 9, "17", "H.264 unknown -1 key 0 1"},
        {"AVC, cut later", 9, "17 01 00", "H.264 frame 1 key 0 2"},
        {"HEVC by number", 9, "1C 00 00 00 00 01", "H.265 config 0 key 0 5"},
        {"MP3", 8, "2F FF", "MP3 frame -1 - 0 1"},
        {"AAC configuration", 8, "AF 00 12", "AAC config 0 - 0 2"},
        {"AAC frame", 8, "AF 01 12", "AAC frame 1 - 0 2"},
        {"AAC, unknown packet", 8, "AF 02 12", "AAC unknown 2 - 0 2"},
        {"AAC, cut", 8, "AF", "AAC unknown -1 - 0 1"},
        {"hvc1 configuration", 9, "90 68 76 63 31 01", "H.265 (hvc1) config 0 key 0 5"},
        {"hvc1 frame with a shift", 9, "A1 68 76 63 31 00 00 43", "H.265 (hvc1) frame 1 - 67 8"},
        {"hvc1 frame without", 9, "93 68 76 63 31 FF", "H.265 (hvc1) frame 3 key 0 5"},
        {"av01 frame", 9, "91 61 76 30 31 00 00 43", "AV1 (av01) frame 1 key 0 5"},
        {"metadata", 9, "94 61 76 30 31 00", "AV1 (av01) metadata 4 key 0 5"},
        {"modified", 9, "97 02 00 00 07 01 76 70 30 39", "VP9 (vp09) frame 1 key 0 10"},
        {"several tracks", 9, "96 11 61 76 63 31 00 00 00 09", "H.264 (avc1) frame 1 key 0 10"},
        {"command with packet types", 9, "D0 00", "reserved command 0 - 0 1"},
        {"cut FourCC", 9, "90 61 76", "reserved unknown 0 key 0 1"},
        {"Opus", 8, "91 4F 70 75 73 FF", "Opus (Opus) frame 1 - 0 5"},
        {"unknown FourCC", 8, "90 00 70 75 73 FF", "unknown (\\x00pus) config 0 - 0 5"},
    };
    for (const auto& c : cases) {
        const Bytes bytes = hex(c.body);
        const BodyInfo b = read_body_info(c.type, bytes.data(), bytes.size());
        EXPECT_EQ(codec_name(c.type == 9, b.codec) + " " + packet_name(b.packet) + " " +
                      std::to_string(b.packet_type) + (b.keyframe ? " key " : " - ") +
                      std::to_string(b.composition_ms) + " " + std::to_string(b.payload),
                  c.text)
            << c.name;
    }
}

TEST(InspectScan, CountsTheWholeFile)
{
    FlvBuilder flv;
    flv.header();
    flv.tag(18, 0, on_meta_data({amf_prop("duration", amf_num(9)), amf_keyframes({0}, {13})}));
    flv.tag(9, 0, avc_config_tag(fill(9))).tag(9, 0, avc_config_tag(fill(9)));
    for (const uint32_t ms : {1000U, 1040U, 1080U, 3000U, 2960U, 3040U})
        flv.tag(9, ms, avc_tag({fill(10)}, ms % 1000 == 0));
    flv.tag(8, 2040, mp3_tag()).tag(8, 2066, mp3_tag()).tag(8, 0x80000000, {});
    const Bytes bytes = cat({flv.bytes(), Bytes(100, 0)});
    MemorySource source(bytes.data(), bytes.size());
    TagWalker walker(source);
    Scanner scanner;
    while (const Item* item = walker.next())
        scanner.see(*item, walker);
    const Scan& s = scanner.scan();
    EXPECT_EQ(s.start_ms(), 1000);
    EXPECT_EQ(s.duration_ms(), 3040 + 80 - 1000);
    EXPECT_EQ(s.claims.duration, 9.0);
    EXPECT_EQ(s.claims.index_entries, 1U);
    EXPECT_EQ(s.video.tags, 8U);
    EXPECT_EQ(s.video.frames, 6U);
    EXPECT_EQ(s.video.frame_bytes, 6U * 14);
    EXPECT_EQ(s.video.configs, 2U);
    EXPECT_EQ(s.video.configurations.count, 1U);
    EXPECT_EQ(s.video.keyframes.count, 2U);
    EXPECT_EQ(s.video.keyframes.longest.value, 2000);
    EXPECT_EQ(s.video.steps.back, 1U);
    EXPECT_EQ(s.video.steps.largest_back.value, -40);
    EXPECT_EQ(s.video.steps.gaps, 1U);
    EXPECT_EQ(s.video.steps.largest_gap.value, 1920);
    EXPECT_EQ(s.audio.frames, 2U);
    EXPECT_EQ(s.audio.empty, 1U);
    EXPECT_EQ(s.audio.negative_times, 1U);
    EXPECT_EQ(s.furthest_apart.value, 2040 - 3040);
    EXPECT_EQ(s.lost_bytes, 100);
    EXPECT_EQ(s.end.kind, EndKind::LOST);
}

} // namespace
