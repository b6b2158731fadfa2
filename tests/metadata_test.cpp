// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <cmath>

namespace {

// In the order of the record's fields; the first `flags` are bytes, the others numbers.
constexpr const char* known[] = {
    "hasKeyframes", "hasVideo",  "hasMetadata",   "hasCuePoints",
    "canSeekToEnd", "duration",  "lasttimestamp", "lastkeyframetimestamp",
    "filesize",     "datasize",  "videocodecid",  "width",
    "height",       "framerate", "videodatarate", "videosize",
    "audiocodecid", "audiosize", "audiodatarate", "audiodelay"};
constexpr size_t flags = 5;

/// The fields that are not zero: "hasVideo=1 width=7 times=0,1, keyframes=2 ".
std::string shown(const ZOFLVD_METADATA& md)
{
    std::ostringstream out;
    const auto field = [&](const std::string& name, double value) {
        if (value != 0)
            out << name << "=" << value << " ";
    };
    const auto array = [&](const char* name, int count, const double* values) {
        EXPECT_EQ(count == 0, values == nullptr) << name;
        for (int i = 0; i < count; ++i)
            out << (i ? "," : name) << values[i] << (i + 1 == count ? " " : "");
    };
    for (size_t i = 0; i < std::size(known); ++i)
        field(known[i], i < flags ? (&md.has_keyframes)[i] : (&md.duration)[i - flags]);
    array("filepositions=", md.filepositions_cnt, md.filepositions);
    array("times=", md.times_cnt, md.times);
    field("keyframes", md.keyframe_cnt);
    return out.str();
}

/// Decodes the tag at 3 and checks the code, the record and the log.
struct Decoder : ZOFLVD_METADATA {
    Decoder() : ZOFLVD_METADATA() {}
    ~Decoder() { zoflvd_metadata_deinit(this); }
    void check(MemFile& file, int rc, const std::string& fields, const std::string& log_lines)
    {
        const int64_t at = 3;
        LogCapture log;
        EXPECT_EQ(zoflvd_metadata_init(file.mfal(), file.fh(), &at, this, &next), rc);
        EXPECT_EQ(shown(*this), fields);
        EXPECT_TRUE(log.is(lines(log_lines)));
    }
    int64_t next = -77;
};

/// A file with the tag at 3.
Bytes tag(const Bytes& body, uint8_t type = 18)
{
    return FlvBuilder().raw(fill(3)).tag(type, 0, body).bytes();
}

Bytes num(std::string_view name, double value)
{
    return amf_prop(name, amf_num(value));
}

} // namespace

TEST(Metadata, EveryKnownProperty)
{
    std::vector<Bytes> props;
    std::string all;
    for (size_t i = 0; i < std::size(known); ++i) {
        all += known[i] + ("=" + std::to_string(i < flags ? 1 : i)) + " ";
        props.push_back(i < flags ? amf_prop(known[i], amf_bool(true)) : num(known[i], double(i)));
    }
    props.push_back(amf_keyframes({0, 1, 2}, {100, 200, 300, 400}));
    all += "filepositions=100,200,300,400 times=0,1,2 keyframes=3 ";
    MemFile file(tag(on_meta_data(props)));
    Decoder decoder;
    decoder.check(file, 0, all, "");
    EXPECT_EQ(decoder.next, file.reported_size);
    EXPECT_EQ(file.calls(), 4);              // the position set and taken, head and body read
    decoder.check(file.reset(), 0, all, ""); // replaces what was there
    decoder.check(file.fail(MemFile::SetPos, 1), -6, "", "md fsetpos() failed");
}

TEST(Metadata, Bodies)
{
    const Bytes width = num("width", 5);
    const Bytes height = num("height", 1);
    const Bytes y = num("y", 1);
    const Bytes ten = be(0x4024000000000000, 8);
    const Bytes bad = amf_prop("y", {14});
    const auto x = [](const std::vector<Bytes>& value) { return amf_prop("x", cat(value)); };
    const auto times = [](const Bytes& value) { return amf_prop("times", value); };
    const std::string too_long = "rb string too large (33 bytes) for buffer (32 bytes)|";
    const std::string no_header = "md read_property_header() failed";
    const std::string too_large = "md array count is too large. malloc() failed";
    const struct {
        uint32_t count;
        std::vector<Bytes> props;
        const char* fields;
        std::string log;
    } cases[] = {
        {1, {width, height}, "width=5 ", ""},
        {0x80000001, {width}, "width=5 ", ""},
        {5, {width, hex("00 00 09")}, "width=5 ", "rb #112"}, // taken for a property
        {2, {num("duration", NAN), width}, "width=5 ", ""},
        {2, {width, cut(height, 13)}, "width=5 ", "rb #112|md #*"},
        // names: leading parts of known ones match, the first known one wins
        {2, {num("last", 5), num("widths", 1)}, "lasttimestamp=5 ", ""},
        {2, {num(std::string(32, 'n'), 1), width}, "width=5 ", ""},
        {2, {width, num(std::string(33, 'n'), 1)}, "width=5 ", too_long + no_header},
        {3, {width, bad, height}, "width=5 ", no_header},
        // a known name decides how the value is read, not the marker
        {2, {amf_prop("duration", cat({{2}, ten})), width}, "duration=10 width=5 ", ""},
        // unknown properties
        {5, {y, x({{1, 1}}), x({amf_str("a")}), x({{11}, ten, {0, 0}}), width}, "width=5 ", ""},
        {5, {x({{4}}), x({{7}}), x({{9}}), x({{13}}), width}, "width=5 ", ""},
        {3, {x({amf_object({height})}), x({amf_ecma(2, {height, y})}), width}, "width=5 ", ""},
        {4, {x({amf_ecma(1, {y, height})}), {1}, width}, "hasKeyframes=1 width=5 height=1 ", ""},
        {3, {x({amf_ecma(0, {})}), {1}, width}, "hasKeyframes=1 width=5 ", ""}, // its end is left
        {2, {x({{10}, be(2, 4), amf_array({1}), amf_object({y})}), width}, "width=5 ", ""},
        {3, {width, x({hex("0A 00000001 05")}), height}, "width=5 ", "md invalid ecma type 5"},
        {3, {width, x({hex("02 8000")}), height}, "width=5 ", "rb #108"},
        {2, {x({{3}, bad}), width}, "width=5 ", no_header},
        {1, {amf_prop("keyframes", amf_object({width}))}, "width=5 ", ""},
        // the number arrays
        {2, {times(cat({{10}, be(3, 4), amf_num(7), {2}})), width}, "width=5 times=7 ", ""},
        {1, {times(cat({{10}, be(0x0FFFFFFF, 4), amf_num(7)}))}, "times=7 ", ""},
        {3, {times(amf_array({1})), times(amf_array({})), width}, "width=5 ", ""},
        {3, {times(amf_array({1})), times(hex("0A 10000000")), width}, "", too_large},
        {1, {times(hex("0A 80000000"))}, "", too_large},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        HeapFaults heap;
        MemFile file(tag(cat({amf_str("onMetaData"), {8}, be(c.count, 4), cat(c.props)})));
        Decoder().check(file, 0, c.fields, c.log);
        EXPECT_LT(heap.peak(), 4096);
        EXPECT_EQ(heap.live(), 0);
    }
}

TEST(Metadata, Failures)
{
    const Bytes name = amf_str("onMetaData");
    const Bytes good = on_meta_data({num("width", 5), amf_keyframes({1}, {2})});
    const auto warned = [](const std::string& text) {
        return "= W zoflvd_metadata: " + text + "|md read_metadata() failed";
    };
    const std::string no_header =
        "md read_property_header() failed|" + warned("read_property_header() failed");
    const struct {
        Bytes file;
        int rc, moved; // how far next_pos is after the tag's start; 0: not written
        std::string log;
    } cases[] = {
        {tag(good, 8), 0, 0, warned("flv file doesn't have metadata as first tag")},
        {tag({}), -3, 0, "md metadata tag has invalid data_size 0"},
        {fill(13), -3, 0, "cut|md zoflvd_tag_read() failed"},
        {cut(tag(name), 25), -3, 28, "cut|" + warned("can't read metadata into memory")},
        {tag({3}), 0, 16, "md first byte of \"onMetaData\" should be 2: script data object)"},
        {tag(cat({name, {14}})), -3, 29, no_header},
        {tag({2}), -3, 16, "rb #112|rb #217|" + no_header},
        {tag(cat({amf_str("X"), {8}})), -3, 20,
         warned("wrong \"onMetaData\" string length: 1 bytes")},
        {tag(cat({amf_str("onmetadata"), {8}})), -3, 29, warned("wrong \"onMetaData\" string")},
        {tag(cat({name, {3}})), -3, 29, warned("metadata type should be mixed array (8), not 3")},
        {tag(cat({name, {8}})), -3, 29, "rb #112|rb #230|" + warned("handlr_mixed_array() failed")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        MemFile file(c.file);
        Decoder decoder;
        decoder.check(file, c.rc, "", c.log);
        EXPECT_EQ(decoder.next, c.moved ? 3 + c.moved : -77);
    }
    for (int n = 0; n < 3; ++n) {
        const char* fields[] = {"", "width=5 ", "width=5 filepositions=2 "}; // "keyframes" ends
        MemFile file(tag(good));
        HeapFaults heap;
        heap.fail(n);
        Decoder().check(file, n ? 0 : -5, fields[n],
                        n ? "md malloc() failed" : "md malloc failed!*");
    }
}

TEST(Metadata, NestingIsBounded)
{
    const Bytes object = hex("0001 78 03");
    const Bytes mixed = hex("0001 78 08 00000001");
    const Bytes strict = hex("0A 00000001");
    for (const Bytes& open : {object, mixed, strict}) {
        for (const size_t levels : {64U, 65U}) {
            std::vector<Bytes> parts(levels, open);
            if (open == strict)
                parts.insert(parts.begin(), hex("0001 78")); // its elements have no names
            parts.push_back(open == object ? Bytes() : open == mixed ? num("x", 1) : Bytes{1, 1});
            parts.insert(parts.end(), open == strict ? 0 : levels, hex("00 00 09"));
            MemFile file(tag(on_meta_data({cat(parts), num("width", 6)})));
            Decoder().check(file, 0, levels == 64 ? "width=6 " : "", levels == 64 ? "" : "md #*");
        }
    }
}
