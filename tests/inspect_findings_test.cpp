// SPDX-License-Identifier: Apache-2.0
// Made files, each with exactly the findings that it must give, and those of the samples.
#include "inspect/byte_source.h"
#include "inspect/findings.h"
#include "inspect/verdict.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <set>
#include <sstream>
#include <zoflv_host/log.h>

using namespace zoflv_inspect;

namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
const Bytes PPS = hex("68 CE 3C 80");
const Bytes HIGH_444_SPS = Bits()
                               .raw(hex("67 F4 00 1E"))
                               .ue(0)
                               .ue(3)
                               .u(1, 0)
                               .ue(0)
                               .ue(0)
                               .u(2, 0)
                               .ue(0)
                               .ue(2)
                               .ue(1)
                               .u(1, 0)
                               .ue(19)
                               .ue(14)
                               .u(4, 0xC)
                               .trailing()
                               .bytes(); // 320 x 240
const Bytes MP3_FRAME = mp3_tag(fill(60));
const Bytes H263_FRAME = hex("12 00 00 80 01 00 00"); // 352 x 288

struct Piece {
    uint8_t type;
    uint32_t time;
    Bytes body;
    Bytes previous = be(11 + body.size(), 4);
    uint32_t stream_id = 0;
    Bytes raw{}; // in place of a tag
};

/// A sound file of H.264 and AAC, 30 frames of 40 ms each, every fifth a keyframe; to be spoilt.
struct Made {
    Bytes header = cat({hex("46 4C 56 01 05 00 00 00 09"), be(0, 4)});
    std::vector<Bytes> props = {amf_prop("duration", amf_num(1.2)), amf_prop("width", amf_num(320)),
                                amf_prop("height", amf_num(240))};
    std::vector<Piece> pieces;
    bool metadata = true;
    std::function<Bytes(const Bytes& body)> rewrite = [](const Bytes& body) { return body; };
    std::function<void(std::vector<double>& times, std::vector<double>& positions)> index =
        [](auto&, auto&) {};
    Bytes after;
    size_t missing = 0; ///< bytes that the end lacks
    DeviceFacts facts;
    int64_t readable = INT64_MAX; // bytes

    Made()
    {
        pieces.push_back({9, 0, avc_config_tag(avc_record({avc_sps(20, 15)}, {PPS}))});
        pieces.push_back({8, 0, aac_config_tag()});
        for (uint32_t i = 0; i < 30; ++i) {
            const bool key = i % 5 == 0;
            pieces.push_back({9, 40 * i, avc_tag({hex(key ? "65 11 22" : "41 33")}, key)});
            pieces.push_back({8, 40 * i, aac_tag(fill(8))});
        }
    }
    Piece& video(size_t i) { return pieces[2 + 2 * i]; }
    Piece& audio(size_t i) { return pieces[3 + 2 * i]; }
    void insert(size_t at, const Piece& piece)
    {
        pieces.insert(pieces.begin() + static_cast<ptrdiff_t>(at), piece);
    }
    /// Leaves one stream out.
    void drop(uint8_t type)
    {
        std::vector<Piece> kept;
        for (const Piece& piece : pieces)
            if (piece.type != type)
                kept.push_back(piece);
        pieces = kept;
        header[4] = type == 8 ? 1 : 4;
    }
    static void set(Piece& piece, const Bytes& body) { piece = {piece.type, piece.time, body}; }
    /// Leaves a stream's configuration out, and gives all its frames one body.
    void replace(uint8_t type, const Bytes& body)
    {
        pieces.erase(pieces.begin() + (type == 9 ? 0 : 1));
        for (Piece& piece : pieces)
            if (piece.type == type)
                set(piece, body);
    }
    void no_index()
    {
        index = [](auto& times, auto& positions) { times.clear(), positions.clear(); };
    }
    void duration(double seconds) { props[0] = amf_prop("duration", amf_num(seconds)); }
    void each(const std::function<void(Piece& piece, uint32_t number)>& change)
    {
        uint32_t number = 0;
        for (Piece& piece : pieces)
            change(piece, number++);
    }

    Bytes meta_tag(size_t shift) const
    {
        std::vector<double> times;
        std::vector<double> positions;
        size_t at = header.size() + shift;
        double last = -1;
        for (const Piece& p : pieces) {
            const bool video = p.type == 9 && p.raw.empty() && p.body.size() > 5;
            const bool key =
                video && (p.body[0] >> 4 & 7) == 1 && ((p.body[0] & 15) != 7 || p.body[1] == 1);
            if (key && p.time / 1000.0 > last) {
                times.push_back(last = p.time / 1000.0);
                positions.push_back(static_cast<double>(at));
            }
            at += p.raw.empty() ? 11 + p.body.size() + p.previous.size() : p.raw.size();
        }
        index(times, positions);
        std::vector<Bytes> all = props;
        if (!times.empty() || !positions.empty())
            all.push_back(amf_keyframes(times, positions));
        return FlvBuilder().tag(18, 0, rewrite(on_meta_data(all))).bytes();
    }
    Bytes bytes() const
    {
        FlvBuilder file;
        file.raw(header);
        if (metadata)
            file.raw(meta_tag(meta_tag(0).size()));
        for (const Piece& p : pieces) {
            if (!p.raw.empty()) {
                file.raw(p.raw);
                continue;
            }
            const Bytes tag = FlvBuilder().tag(p.type, p.time, p.body, p.stream_id).bytes();
            file.raw(cut(tag, tag.size() - 4)).raw(p.previous);
        }
        const Bytes& whole = file.raw(after).bytes();
        return {whole.begin(), whole.end() - static_cast<ptrdiff_t>(missing)};
    }
};

/// Reads fail that go beyond a position.
class BrokenSource : public MemorySource {
public:
    BrokenSource(const Bytes& bytes, int64_t readable)
        : MemorySource(bytes.data(), bytes.size()), m_readable(readable)
    {}
    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        const int64_t count = MemorySource::read_at(offset, buffer, size);
        return offset + count > m_readable ? -1 : count;
    }

private:
    const int64_t m_readable;
};

std::vector<Finding> findings_of(const Made& made)
{
    const Bytes bytes = made.bytes();
    BrokenSource source(bytes, made.readable);
    return find_all(source, made.facts);
}

std::string codes_of(const std::vector<Finding>& findings)
{
    std::string codes;
    for (const Finding& finding : findings)
        codes += (codes.empty() ? "" : " ") + std::string(finding.code());
    return codes;
}

struct Row {
    const char* codes;
    void (*spoil)(Made& m);
};

void rows_are_as_told(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        Made made;
        row.spoil(made);
        EXPECT_EQ(codes_of(findings_of(made)), row.codes);
    }
}

const std::vector<Row> STRUCTURE = {
    {"", [](Made&) {}},
    {"file.read_failed", [](Made& m) { m.readable = 800; }},
    {"file.empty", [](Made& m) { m.header.clear(), m.metadata = false, m.pieces.clear(); }},
    {"file.id3",
     [](Made& m) {
         m.header = cat({hex("49 44 33 04 00 00 00 00 00 03 41 42 43"), m.header});
     }},
    {"file.no_header",
     [](Made& m) {
         m.header = cat({hex("01 02 03"), m.header});
     }},
    {"header.cut", [](Made& m) { m.header.resize(5), m.metadata = false, m.pieces.clear(); }},
    {"header.version", [](Made& m) { m.header[3] = 2; }},
    {"header.data_offset", [](Made& m) { m.header[8] = 11; }},
    {"header.longer", [](Made& m) { m.header[8] = 11, m.header.resize(15); }},
    {"file.no_media", [](Made& m) { m.pieces.clear(); }},
    {"header.absent", [](Made& m) { m.drop(8), m.header[4] = 5; }},
    {"header.late header.late script.several",
     [](Made& m) {
         for (uint32_t i = 1; i <= 101; ++i)
             m.insert(0, {18, 0, amf_str("onCuePoint")});
     }},
    {"header.hides", [](Made& m) { m.header[4] = 1; }},
    {"header.no_flags", [](Made& m) { m.header[4] = 0; }},
    {"header.reserved", [](Made& m) { m.header[4] = 7; }},
    {"header.inner",
     [](Made& m) {
         m.insert(20, {0, 0, {}, {}, 0, cat({hex("46 4C 56 01 05 00 00 00 09"), be(0, 4)})});
     }},
    {"header.inner",
     [](Made& m) {
         m.header = cat({m.header, m.header});
     }},
    {"data.damaged",
     [](Made& m) {
         m.insert(20, {0, 0, {}, {}, 0, fill(99, 100)});
     }},
    {"data.zeros",
     [](Made& m) {
         m.insert(20, {0, 0, {}, {}, 0, Bytes(99)});
     }},
    {"tail.zeros", [](Made& m) { m.after = Bytes(999); }},
    {"tail.garbage", [](Made& m) { m.after = fill(99, 100); }},
    {"tag.cut", [](Made& m) { m.missing = 9; }},
    {"tag.encrypted", [](Made& m) { m.video(7).type = 0x29; }},
    {"tag.reserved", [](Made& m) { m.video(7).type = 0x89; }},
    {"tag.type",
     [](Made& m) {
         m.insert(9, {15, 0, fill(5)});
     }},
    {"tag.empty",
     [](Made& m) {
         m.audio(7) = {8, 280, {}};
     }},
    {"tag.empty",
     [](Made& m) {
         m.video(7) = {9, 280, {0x27}};
     }},
    {"tag.no_payload",
     [](Made& m) {
         m.video(7) = {9, 280, hex("27 01 00 00 00")};
     }},
    {"tag.stream_id", [](Made& m) { m.each([](Piece& p, uint32_t) { p.stream_id = 1; }); }},
    {"prev.missing", [](Made& m) { m.video(7).previous.clear(); }},
    {"prev.last", [](Made& m) { m.audio(29).previous.clear(); }},
    {"prev.zero", [](Made& m) { m.each([](Piece& p, uint32_t) { p.previous = Bytes(4); }); }},
    {"prev.body",
     [](Made& m) { m.each([](Piece& p, uint32_t) { p.previous = be(p.body.size(), 4); }); }},
    {"prev.plus4",
     [](Made& m) { m.each([](Piece& p, uint32_t) { p.previous = be(p.body.size() + 15, 4); }); }},
    {"prev.plus15",
     [](Made& m) { m.each([](Piece& p, uint32_t) { p.previous = be(p.body.size() + 26, 4); }); }},
    {"prev.other", [](Made& m) { m.video(7).previous = be(77, 4); }},
    {"prev.first", [](Made& m) { m.header[12] = 1; }},
};

const std::vector<Row> METADATA = {
    {"meta.none duration.none index.none", [](Made& m) { m.metadata = false; }},
    {"meta.not_first duration.none index.none",
     [](Made& m) {
         m.metadata = false;
         m.insert(0, {18, 0, on_meta_data(m.props)});
         m.insert(0, {8, 0, aac_config_tag()});
         m.pieces.erase(m.pieces.begin() + 3);
     }},
    {"meta.object duration.none index.none",
     [](Made& m) {
         m.rewrite = [](const Bytes& body) {
             return cat({amf_str("onMetaData"), amf_object({body})});
         };
     }},
    {"meta.unreadable duration.none index.none",
     [](Made& m) { m.rewrite = [](const Bytes&) {
                       return cat({amf_str("onMetaData"), {8}});
                   }; }},
    {"meta.count", [](Made& m) { m.rewrite = [](Bytes body) { return body[17] = 9, body; }; }},
    {"meta.count index.none",
     [](Made& m) { m.rewrite = [](Bytes body) { return body[17] = 1, body; }; }},
    {"meta.type index.none",
     [](Made& m) { m.props.push_back(amf_prop("videocodecid", amf_str("avc1....."))); }},
    {"meta.prefix", [](Made& m) { m.props.push_back(amf_prop("audio", amf_num(1))); }},
    {"meta.twice",
     [](Made& m) {
         m.insert(9, {18, 0, on_meta_data({})});
     }},
    {"script.several",
     [](Made& m) {
         m.insert(9, {18, 0, amf_str("onCuePoint")});
     }},
    {"duration.none", [](Made& m) { m.props.erase(m.props.begin()); }},
    {"duration.zero", [](Made& m) { m.props[0] = amf_prop("duration", amf_num(0)); }},
    {"duration.absurd", [](Made& m) { m.props[0] = amf_prop("duration", amf_num(-5)); }},
    {"duration.absurd", [](Made& m) { m.props[0] = amf_prop("duration", amf_num(NOT_A_NUMBER)); }},
    {"duration.short", [](Made& m) { m.props[0] = amf_prop("duration", amf_num(0.6)); }},
    {"duration.long", [](Made& m) { m.props[0] = amf_prop("duration", amf_num(60)); }},

    {"index.none", [](Made& m) { m.no_index(); }},
    {"index.first_beyond", [](Made& m) { m.index = [](auto&, auto& p) { p[0] = 99999; }; }},
    {"index.rejected index.shifted", [](Made& m) { m.index = [](auto&, auto& p) { p[0] += 3; }; }},
    {"index.shifted", [](Made& m) { m.index = [](auto&, auto& p) { p[3] -= 20; }; }},
    {"index.beyond", [](Made& m) { m.index = [](auto&, auto& p) { p[5] = 99999; }; }},
    {"index.miss index.sparse",
     [](Made& m) {
         m.index = [](auto& t, auto& p) { t[2] = t[3] = t[2] + .01, p[2] -= 4, p[3] -= 4; };
     }},
    {"index.type", [](Made& m) { m.index = [](auto&, auto& p) { p[2] += 27; }; }},
    {"index.no_keyframe",
     [](Made& m) { m.index = [](auto& t, auto& p) { t[2] = 0.44, p[2] += 27 + 25; }; }},
    {"index.order",
     [](Made& m) {
         m.index = [](auto& t, auto& p) { std::swap(t[2], t[3]), std::swap(p[2], p[3]); };
     }},
    {"index.time", [](Made& m) { m.index = [](auto& t, auto&) { t[2] += 0.1; }; }},
    {"index.counts", [](Made& m) { m.index = [](auto& t, auto&) { t.push_back(1.1); }; }},
    {"index.sparse", [](Made& m) { m.index = [](auto& t, auto& p) { t.resize(3), p.resize(3); }; }},
};

const std::vector<Row> TIMES = {
    {"time.wrap24 time.wrap24 time.start index.none",
     [](Made& m) {
         m.no_index();
         m.each([](Piece& p, uint32_t) { p.time = (p.time + 16776700) & 0xFFFFFF; });
     }},
    {"time.wrap32 time.wrap32 time.negative time.negative index.none",
     [](Made& m) {
         m.no_index();
         m.each([](Piece& p, uint32_t) { p.time = p.time * 55 - 63000; });
     }},
    {"time.negative time.negative index.none",
     [](Made& m) {
         m.no_index();
         m.each([](Piece& p, uint32_t) { p.time -= 40; });
     }},
    {"time.reset time.reset index.none",
     [](Made& m) {
         m.no_index();
         m.duration(2.9);
         m.each([](Piece& p, uint32_t n) { p.time *= n < 40 ? 4 : 1; });
     }},
    {"time.start", [](Made& m) { m.each([](Piece& p, uint32_t) { p.time += 5000; }); }},
    {"time.jump time.jump",
     [](Made& m) {
         m.duration(21.2);
         m.each([](Piece& p, uint32_t n) { p.time += n > 31 ? 20000 : 0; });
     }},
    {"time.back", [](Made& m) { m.video(8).time = 200; }},
    {"time.repeat", [](Made& m) { m.audio(8).time = 280; }},
    {"sync.drift",
     [](Made& m) {
         m.duration(15);
         for (uint32_t i = 30; i < 300; ++i) {
             m.pieces.push_back({9, 40 * i, avc_tag({hex("41 33")}, false)});
             m.pieces.push_back({8, 50 * i, aac_tag(fill(8))});
         }
     }},
};

const std::vector<Row> CODECS = {
    {"audio.format14", [](Made& m) { m.replace(8, hex("EF 01 02")); }},
    {"audio.format15", [](Made& m) { m.replace(8, hex("FF 01 02")); }},
    {"codec.newer", [](Made& m) { m.replace(9, hex("91 68 76 63 31 00 00 00 01 02")); }},
    {"codec.newer", [](Made& m) { m.replace(8, hex("91 4F 70 75 73 01 02")); }},
    {"codec.change", [](Made& m) { m.set(m.audio(7), MP3_FRAME); }},
    {"codec.unplayable",
     [](Made& m) {
         m.replace(8, hex("B2 01 02")), m.facts.audio = {true, -1002, 0};
     }},
    {"mp3.no_sync", [](Made& m) { m.replace(8, hex("2F 01 02 03 04")); }},
    {"mp3.bad_header", [](Made& m) { m.replace(8, hex("2F FF E0 00 00")); }},
    {"mp3.id3",
     [](Made& m) { m.replace(8, MP3_FRAME), m.set(m.pieces[2], hex("2F 49 44 33 FF FB 90 04")); }},
    {"", [](Made& m) { m.replace(8, MP3_FRAME); }},
    {"aac.config_bad", [](Made& m) { m.set(m.pieces[1], hex("AF 00 12")); }},
    {"aac.config_bad aac.no_config", [](Made& m) { m.set(m.pieces[1], hex("AF 02 12 10")); }},
    {"aac.raw_first aac.no_config", [](Made& m) { m.pieces.erase(m.pieces.begin() + 1); }},
    {"aac.raw_first aac.late_config", [](Made& m) { std::swap(m.pieces[1], m.audio(0)); }},
    {"aac.config_changed", [](Made& m) { m.set(m.audio(7), aac_config_tag(hex("11 90"))); }},
    {"aac.config_again", [](Made& m) { m.set(m.audio(7), aac_config_tag()); }},
    {"aac.rate_0", [](Made& m) { m.set(m.pieces[1], aac_config_tag(hex("16 90"))); }},
    {"aac.channels_0", [](Made& m) { m.set(m.pieces[1], aac_config_tag(hex("12 00"))); }},
    {"aac.channels_7", [](Made& m) { m.set(m.pieces[1], aac_config_tag(hex("12 38"))); }},
    {"avc.sps_unread", [](Made& m) { m.pieces[0].body[5 + 8] = 0x27; }},
    {"avc.size_misread",
     [](Made& m) { m.set(m.pieces[0], avc_config_tag(avc_record({HIGH_444_SPS}, {PPS}))); }},
    {"avc.size_misread",
     [](Made& m) {
         m.set(m.pieces[0], avc_config_tag(avc_record({HIGH_444_SPS}, {PPS})));
         m.facts.video = {true, -1004, 0};
     }},
    {"avc.config_bad", [](Made& m) { m.set(m.pieces[0], cut(m.pieces[0].body, 20)); }},
    {"avc.no_config", [](Made& m) { m.pieces.erase(m.pieces.begin()); }},
    {"avc.late_config",
     [](Made& m) { m.insert(12, m.pieces[0]), m.pieces.erase(m.pieces.begin()); }},
    {"avc.config_changed",
     [](Made& m) {
         m.insert(9, {9, 80, avc_config_tag(avc_record({avc_sps(40, 30)}, {PPS}))});
     }},
    {"avc.config_again", [](Made& m) { m.insert(9, m.pieces[0]); }},
    {"avc.end_middle",
     [](Made& m) {
         m.insert(9, {9, 80, hex("17 02 00 00 00")});
     }},
    {"avc.start_codes",
     [](Made& m) { m.set(m.video(7), hex("27 01 00 00 00 00 00 00 01 41 33")); }},
    {"avc.nal_length", [](Made& m) { m.set(m.video(7), hex("27 01 00 00 00 00 00 00 09 41 33")); }},
    {"avc.key_flag", [](Made& m) { m.video(7).body[0] = 0x17; }},
    {"video.first_not_key",
     [](Made& m) {
         m.video(0) = {9, 0, avc_tag({hex("41 33")}, false)};
     }},
    {"video.no_size",
     [](Made& m) { m.replace(9, hex("12 00 00 90 01 00 00")), m.props.resize(1); }},
    {"", [](Made& m) { m.replace(9, H263_FRAME), m.props.resize(1); }},
    {"video.no_config",
     [](Made& m) {
         m.facts.video = {true, -1003, 0};
     }},
    {"video.too_large",
     [](Made& m) {
         m.facts.video = {true, -1004, 0};
     }},
    {"frame.too_large",
     [](Made& m) {
         m.facts.video = {true, 0, 600000};
         m.set(m.video(7), avc_tag({Bytes(600000, 0x41)}, false));
     }},
};

TEST(Findings, AreThoseOfTheStructure)
{
    rows_are_as_told(STRUCTURE);
}
TEST(Findings, AreThoseOfTheMetadata)
{
    rows_are_as_told(METADATA);
}
TEST(Findings, AreThoseOfTheTimes)
{
    rows_are_as_told(TIMES);
}
TEST(Findings, AreThoseOfTheCodecs)
{
    rows_are_as_told(CODECS);
}

TEST(Findings, HaveARowForEachRule)
{
    std::set<std::string> codes = {"file.no_frames", "seek.audio", "seek.modes",
                                   "unexplained"}; // the verdict's
    for (const auto* rows : {&STRUCTURE, &METADATA, &TIMES, &CODECS}) {
        for (const Row& row : *rows) {
            std::istringstream words(row.codes);
            codes.insert(std::istream_iterator<std::string>(words), {});
        }
    }
    for (size_t i = 0; i < RULE_COUNT; ++i)
        EXPECT_EQ(codes.count(rule_of(static_cast<Rule>(i)).code), 1U)
            << rule_of(static_cast<Rule>(i)).code;
    EXPECT_EQ(codes.size(), RULE_COUNT);
}

TEST(Findings, TellFiguresOfTheFirstAndCountTheRest)
{
    Made made;
    made.each([](Piece& p, uint32_t n) { p.time += n > 30 ? 20000 : 0; });
    made.each([](Piece& p, uint32_t n) { p.previous = n > 3 ? Bytes(4) : p.previous; });
    made.duration(0.5);
    const std::vector<Finding> findings = findings_of(made);
    ASSERT_EQ(codes_of(findings), "duration.short time.jump time.jump prev.zero");
    EXPECT_EQ(findings[0].detail, "the file says 0.500 s and has 21.160 s");
    EXPECT_EQ(findings[1].kind, StreamKind::AUDIO);
    EXPECT_EQ(findings[1].time_us, 20560000);
    EXPECT_EQ(findings[3].count, 58U);
    EXPECT_EQ(findings[3].text(),
              "the size after tags is 0, and seeks without an index do not find "
              "them: 0 after a tag of 22 bytes (58 times)");
    // A reason is of the same stream, and comes before what it explains.
    EXPECT_TRUE(findings[1].can_explain(SHOWN_SEEK, StreamKind::AUDIO));
    EXPECT_TRUE(findings[1].can_explain(SHOWN_SEEK, StreamKind::FILE));
    EXPECT_FALSE(findings[1].can_explain(SHOWN_SEEK, StreamKind::VIDEO));
    EXPECT_FALSE(findings[1].can_explain(SHOWN_FRAMES, StreamKind::AUDIO));
    EXPECT_FALSE(findings[1].can_explain(SHOWN_SEEK, StreamKind::AUDIO, findings[1].offset - 1));
}

Bytes content(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

const std::filesystem::path ROOT = ZOFLV_SOURCE_DIR;

TEST(Findings, OfTheSamplesAreAsBefore)
{
    const std::filesystem::directory_iterator folder(ROOT / "samples");
    std::string all;
    for (const auto& path : std::set<std::filesystem::path>(begin(folder), end(folder))) {
        if (path.extension() != ".flv")
            continue;
        const Bytes bytes = content(path);
        MemorySource source(bytes.data(), bytes.size());
        for (const Finding& finding : find_all(source))
            all += path.stem().string() + " " + finding.code() + ": " + finding.text() + "\n";
    }
    const Bytes golden = content(ROOT / "tests/golden/findings.txt");
    EXPECT_EQ(all, std::string(golden.begin(), golden.end()));
}

// What the plugin shows of each made file, and what explains it, as told in a file. What is not sound has
// an error, and an error means that; nothing is unexplained.
TEST(Findings, ExplainVerdicts)
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    std::string error;
    const auto plugin = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);
    std::string all;
    for (const auto* rows : {&STRUCTURE, &METADATA, &TIMES, &CODECS}) {
        for (const Row& row : *rows) {
            Made made;
            row.spoil(made);
            zoflv_host::MemoryFaults faults;
            faults.fail_at = made.readable < INT64_MAX ? 9 : 0;
            faults.sticky = true;
            const Verdict verdict = check(
                *plugin, std::make_shared<zoflv_host::MemoryDataSource>(made.bytes(), faults));
            std::string errors;
            for (const Finding& finding : verdict.findings)
                errors += finding.level == Level::ERROR ? std::string(" ") + finding.code() : "";
            EXPECT_EQ(errors.empty(), verdict.status == Status::SOUND) << row.codes;
            EXPECT_EQ(errors.empty(), !verdict.cause) << row.codes;
            EXPECT_EQ(errors.find("unexplained"), std::string::npos) << row.codes;
            all += std::string(row.codes) + ": " + name_of(verdict.status) + errors + "\n";
        }
    }
    const Bytes golden = content(ROOT / "tests/golden/verdicts.txt");
    EXPECT_EQ(all, std::string(golden.begin(), golden.end()));
}

TEST(Findings, AreDocumented)
{
    const Bytes page = content(ROOT / "docs/findings.md");
    EXPECT_EQ(findings_document(), std::string(page.begin(), page.end()));
}

} // namespace
