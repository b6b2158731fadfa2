// SPDX-License-Identifier: Apache-2.0
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <cmath>
#include <cstddef>
#include <sstream>

namespace {

using Lines = LogCapture::Lines;
using Md = ZOFLVD_METADATA;

// In the order of the record's fields.
constexpr const char* flags[] = {"hasKeyframes", "hasVideo", "hasMetadata", "hasCuePoints",
                                 "canSeekToEnd"};
constexpr const char* numbers[] = {"duration",      "lasttimestamp", "lastkeyframetimestamp",
                                   "filesize",      "datasize",      "videocodecid",
                                   "width",         "height",        "framerate",
                                   "videodatarate", "videosize",     "audiocodecid",
                                   "audiosize",     "audiodatarate", "audiodelay"};
static_assert(offsetof(Md, audio_delay) - offsetof(Md, duration) == 14 * sizeof(double), "");

/// The fields that are not zero: "hasVideo=1 width=7 times=0,1, keyframes=2 ".
std::string shown(const Md& md)
{
    std::ostringstream out;
    const uint8_t* flag = &md.has_keyframes;
    for (const char* name : flags)
        if (const int value = *flag++)
            out << name << "=" << value << " ";
    const double* number = &md.duration;
    for (const char* name : numbers)
        if (const double value = *number++; value != 0)
            out << name << "=" << value << " ";
    const auto array = [&](const char* name, int count, const double* values) {
        EXPECT_EQ(count == 0, values == nullptr) << name;
        for (int i = 0; i < count; ++i)
            out << (i ? "," : name) << values[i] << (i + 1 == count ? " " : "");
    };
    array("filepositions=", md.filepositions_cnt, md.filepositions);
    array("times=", md.times_cnt, md.times);
    if (md.keyframe_cnt)
        out << "keyframes=" << md.keyframe_cnt << " ";
    return out.str();
}

/// Decodes the tag at `at` and checks the code, the record and the log ("E: " for this module's).
struct Decoder : Md {
    Decoder() : Md() {}
    ~Decoder() { zoflvd_metadata_deinit(this); }
    void check(MemFile& file, int rc, const std::string& fields, Lines lines, int64_t at = 3)
    {
        for (std::string& line : lines)
            if (line[1] == ':')
                line.insert(1, " zoflvd_metadata");
        LogCapture log;
        EXPECT_EQ(zoflvd_metadata_init(file.mfal(), file.fh(), &at, this, &next), rc);
        EXPECT_EQ(shown(*this), fields);
        EXPECT_TRUE(log.is(lines));
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
    for (const char* flag : flags) {
        props.push_back(amf_prop(flag, amf_bool(true)));
        all += std::string(flag) + "=1 ";
    }
    for (const char* number : numbers) {
        all += std::string(number) + "=" + std::to_string(props.size()) + " ";
        props.push_back(num(number, static_cast<double>(props.size())));
    }
    props.push_back(amf_keyframes({0, 1, 2, 3}, {100, 200, 300, 400, 500}));
    MemFile file(tag(on_meta_data(props)));
    Decoder decoder;
    decoder.check(file, 0, all + "filepositions=100,200,300,400,500 times=0,1,2,3 keyframes=4 ",
                  {});
    EXPECT_EQ(decoder.next, file.reported_size);
    EXPECT_EQ(file.calls(MemFile::Read), 2);
    EXPECT_EQ(file.calls(), 4); // the position set and taken

    MemFile other(tag({1}, 8)); // a later decode replaces what was there, or releases it
    decoder.check(file.reset(), 0, shown(decoder), {});
    decoder.check(file.reset().fail(MemFile::SetPos, 0), -6, "", {"E: fsetpos() failed"});
}

TEST(Metadata, Bodies)
{
    const double inf = std::numeric_limits<double>::infinity();
    const Bytes width = num("width", 5);
    const Bytes height = num("height", 1);
    const Bytes y = num("y", 1);
    const Bytes ten = be(0x4024000000000000, 8);
    const Bytes bad = amf_prop("y", {14});
    const Bytes end = hex("00 00 09");
    const Bytes cut_height = cut(height, 13);
    const auto x = [](const std::vector<Bytes>& value) { return amf_prop("x", cat(value)); };
    const auto times = [](const std::vector<Bytes>& value) {
        return amf_prop("times", cat(value));
    };
    const std::string rb = "E zoflvd_rdbuf: ";
    const std::string no_header = "E: read_property_header() failed";
    const std::string name_33 = rb + "string too large (33 bytes) for buffer (32 bytes)";
    const std::string too_large = "E: array count is too large. malloc() failed";
    const struct {
        uint32_t count;
        std::vector<Bytes> props;
        std::string fields;
        Lines log;
    } cases[] = {
        {0, {width}, "", {}},
        {1, {width, height}, "width=5 ", {}},
        {5, {width}, "width=5 ", {}},
        {0x80000001, {width}, "width=5 ", {}},
        {5, {width, end}, "width=5 ", {rb + "#112"}}, // the end marker is taken for a property
        {2, {num("width", 1), width}, "width=5 ", {}},
        {2, {num("duration", -inf), width}, "duration=-inf width=5 ", {}},
        {2, {num("duration", NAN), width}, "width=5 ", {}},
        {1, {num("duration", 5e-324)}, "duration=4.94066e-324 ", {}},
        {2, {width, cut_height}, "width=5 ", {rb + "#112", "E: #*"}},
        // names: leading parts of known ones match, the first known one wins
        {1, {num("w", 5)}, "width=5 ", {}},
        {1, {num("last", 5)}, "lasttimestamp=5 ", {}},
        {1, {amf_prop("", amf_bool(true))}, "hasKeyframes=1 ", {}},
        {2, {num("widths", 1), height}, "height=1 ", {}},
        {1, {num({"width\0s", 7}, 5)}, "width=5 ", {}},
        {2, {num(std::string(32, 'n'), 1), width}, "width=5 ", {}},
        {2, {width, num(std::string(33, 'n'), 1)}, "width=5 ", {name_33, no_header}},
        {3, {width, bad, height}, "width=5 ", {no_header}},
        // a known name decides how the value is read, not the marker
        {2, {amf_prop("duration", cat({{2}, ten})), width}, "duration=10 width=5 ", {}},
        {2, {amf_prop("hasVideo", {0, 7}), width}, "hasVideo=7 width=5 ", {}},
        // unknown properties
        {5, {y, x({{1, 1}}), x({amf_str("a")}), x({{11}, ten, {0, 0}}), width}, "width=5 ", {}},
        {8,
         {x({{4}}), x({{5}}), x({{6}}), x({{7}}), x({{9}}), x({{12}}), x({{13}}), width},
         "width=5 ",
         {}},
        {2, {x({amf_array({1, 2, 3})}), width}, "width=5 ", {}},
        {2, {x({amf_object({height})}), width}, "width=5 ", {}},
        {2, {x({amf_ecma(2, {height, y})}), width}, "width=5 ", {}},
        {4, {x({amf_ecma(1, {y, height})}), {1}, width}, "hasKeyframes=1 width=5 height=1 ", {}},
        {3, {x({amf_ecma(0, {})}), {1}, width}, "hasKeyframes=1 width=5 ", {}}, // its end is left
        {2, {x({{10}, be(2, 4), amf_array({1}), amf_object({y})}), width}, "width=5 ", {}},
        {3,
         {width, x({{10}, be(2, 4), {10}, be(1, 4), {5}, amf_num(1)}), height},
         "width=5 ",
         {"E: invalid ecma type 5"}},
        {3, {width, x({hex("02 8000")}), height}, "width=5 ", {rb + "#108"}},
        {2, {x({{3}, bad}), width}, "width=5 ", {no_header}},
        {1, {amf_prop("keyframes", amf_object({width}))}, "width=5 ", {}},
        // the number arrays
        {2, {times({{10}, be(3, 4), amf_num(7), {2}}), width}, "width=5 times=7 ", {}},
        {1, {times({{10}, be(0x0FFFFFFF, 4), amf_num(7)})}, "times=7 ", {}},
        {2, {times({amf_array({1, 2})}), times({amf_array({3})})}, "times=3 ", {}},
        {3, {times({amf_array({1})}), times({amf_array({})}), width}, "width=5 ", {}},
        {3, {times({amf_array({1})}), times({hex("0A 10000000")}), width}, "", {too_large}},
        {2,
         {amf_prop("keyframes", cat({{3}, times({hex("0A 80000000")})})), width},
         "width=5 ",
         {too_large}},
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
    const std::string rb = "E zoflvd_rdbuf: ";
    const std::string rb_warn = "W zoflvd_rdbuf: fread() failed, EOF?";
    const std::string rb_init = rb + "zoflvd_rdbuf_init() failed";
    const std::string failed = "E: read_metadata() failed";
    const std::string no_header = "E: read_property_header() failed";
    const std::string no_header_warn = "W: read_property_header() failed";
    const std::string not_script = "W: flv file doesn't have metadata as first tag";
    const std::string no_load = "W: can't read metadata into memory";
    const std::string first = "E: first byte of \"onMetaData\" should be 2: script data object)";
    const std::string length = "W: wrong \"onMetaData\" string length: 11 bytes";
    const std::string string = "W: wrong \"onMetaData\" string";
    const std::string object = "W: metadata type should be mixed array (8), not 3";
    const std::string no_count = "W: handlr_mixed_array() failed";
    const struct {
        Bytes file;
        int rc, moved; // how far next_pos lies behind the tag's start; 0: not written
        Lines log;
    } cases[] = {
        {tag(good, 8), 0, 0, {not_script, failed}},
        {tag({}), -3, 0, {"E: metadata tag has invalid data_size 0"}},
        {fill(13), -3, 0, {rb_warn, rb_init, "E: zoflvd_tag_read() failed"}},
        {cut(tag(name), 25), -3, 28, {rb_warn, rb_init, no_load, failed}},
        {tag(hex("03 0000")), 0, 18, {first}},
        {tag(cat({name, {14}})), -3, 29, {no_header, no_header_warn, failed}},
        {tag(name), -3, 28, {rb + "#112", no_header, no_header_warn, failed}},
        {tag({2}), -3, 16, {rb + "#112", rb + "#217", no_header, no_header_warn, failed}},
        {tag(cat({amf_str("onMetaDataX"), {8}})), -3, 30, {length, failed}},
        {tag(cat({amf_str("onmetadata"), {8}})), -3, 29, {string, failed}},
        {tag(cat({name, {3}})), -3, 29, {object, failed}},
        {tag(cat({name, {8, 0}})), -3, 30, {rb + "#112", rb + "#230", no_count, failed}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        MemFile file(c.file);
        Decoder decoder;
        decoder.check(file, c.rc, "", c.log);
        EXPECT_EQ(decoder.next, c.moved ? 3 + c.moved : -77);
    }
    const std::string body = "E: malloc failed!, [zoflv/dmx/zoflvd_metadata: *]";
    const std::string array = "E: malloc() failed"; // ends "keyframes"
    MemFile file(tag(good));
    for (int n = 0; n < 3; ++n) {
        const char* fields = n == 0 ? "" : n == 1 ? "width=5 " : "width=5 filepositions=2 ";
        HeapFaults heap;
        heap.fail(n);
        Decoder().check(file, n == 0 ? -5 : 0, fields, {n == 0 ? body : array});
        EXPECT_EQ(heap.live(), 0);
    }
    for (size_t n = 1; n < good.size(); ++n) { // a body that ends early
        MemFile part(tag(cut(good, n)));
        Decoder decoder;
        const int64_t at = 3;
        const int rc = zoflvd_metadata_init(part.mfal(), part.fh(), &at, &decoder, &decoder.next);
        EXPECT_EQ(rc, n < name.size() + 5 ? -3 : 0) << n;
    }
}

TEST(Metadata, NestingIsBounded)
{
    const struct {
        const char* open;
        const char* nested;
        Bytes innermost;
        const char* close;
    } kinds[] = {
        {"0001 78 03", "0001 78 03", {}, "00 00 09"},
        {"0001 78 08 00000001", "0001 78 08 00000001", num("x", 1), "00 00 09"},
        {"0001 78 0A 00000001", "0A 00000001", {1, 1}, ""},
    };
    for (const auto& kind : kinds) {
        for (const size_t levels : {64U, 65U, 100000U}) {
            SCOPED_TRACE(std::string(kind.open) + " " + std::to_string(levels));
            std::vector<Bytes> parts(levels, hex(kind.nested));
            parts[0] = hex(kind.open);
            parts.push_back(kind.innermost);
            parts.insert(parts.end(), levels, hex(kind.close));
            MemFile file(tag(on_meta_data({num("width", 5), cat(parts), num("height", 6)})));
            if (levels == 64)
                Decoder().check(file, 0, "width=5 height=6 ", {});
            else
                Decoder().check(file, 0, "width=5 ", {"E: #*"});
        }
    }
}
