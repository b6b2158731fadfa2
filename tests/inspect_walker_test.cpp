// SPDX-License-Identifier: Apache-2.0
// Walks over made files: what is found where, and what it costs.
#include "inspect/walker.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

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

} // namespace
