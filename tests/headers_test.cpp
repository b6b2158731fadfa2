// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

#include <cmath>

namespace {

const Bytes code = hex("00000001");
const Bytes sps64 = avc_sps(4, 3); // 64 x 48
const Bytes pps = hex("68 CE 06");
const Bytes config = avc_config_tag(avc_record({sps64}, {pps}));
const Bytes nal = avc_tag({fill(3)});

Bytes tags(uint8_t type, const std::vector<Bytes>& bodies, std::initializer_list<Bytes> props = {})
{
    FlvBuilder b = flv(type == 9 ? 1 : 4, props);
    for (const Bytes& body : bodies)
        b.tag(type, 0, body);
    return b.bytes();
}

/// The bodies are separated by '/'; the metadata gives the size.
Bytes video(const std::string& bodies, double width = 8, double height = 8)
{
    std::vector<Bytes> list;
    std::istringstream in(bodies);
    for (std::string body; std::getline(in, body, '/');)
        list.push_back(hex(body));
    return tags(9, list, {amf_prop("width", amf_num(width)), amf_prop("height", amf_num(height))});
}

std::string h263(uint64_t size_code, const Bytes& custom = {}, int extra = 0, uint64_t start = 32)
{
    Bits b;
    b.u(8, 0x22).u(22, start).u(8, 7).u(3, size_code).raw(custom).u(2, 2).u(1, 1).u(5, 9);
    while (extra-- > 0)
        b.u(9, 0x1FF);
    return to_hex(b.u(1, 0).bytes());
}

TEST(Headers, Video)
{
    const char* const sizes[] = {"352x288 152064", "176x144 38016", "128x96 18432",
                                 "320x240 115200", "160x120 28800", "8x8 96"};
    for (uint64_t i = 0; i < 6; ++i)
        EXPECT_EQ(Dmx(video(h263(i + 2))).text(), std::string("FLV1 ") + sizes[i]);
    const std::string avc = to_hex(config), unit = to_hex(nal);
    const std::string with_sets = "h264 64x48 4608 [00000001" + to_hex(sps64) + "0000000168CE06]";
    const std::string bad_sps = to_hex(avc_config_tag(avc_record({hex("27 42 00 1E 88")}, {pps})));
    const OpenCase cases[] = {
        {video(h263(0, hex("B090"))), "FLV1 176x144 38016", ""},
        {video(h263(1, hex("01020304"), 2)), "FLV1 258x772 298764", ""},
        {video(h263(2, {}, 0, 64) + "/" + h263(4, {}, 0, 33)), "FLV1 128x96 18432", "sh #*"},
        {video(h263(2, {}, 0, 34) + "/" + h263(4)), "FLV1 128x96 18432",
         "= W zoflvd_h263: unsupported h.263 version 2|sh #*"},
        {video("22000084/" + h263(4)), "FLV1 128x96 18432", "rb #166|rb #200|sh #*"},
        // Screen video: 3, 160, 3, 120; for the second version behind another byte.
        {video("13 00 30A0 3078"), "scrn 64x224 21504", ""},
        {video("16 00 30A0 3078"), "scr2 224x184 61824", ""},
        {video("13 30A0/13 30A0 3078"), "scrn 224x184 61824", "rb #157|rb #200|sh #*"},
        {video("/13 30A0 3078"), "scrn 224x184 61824", "rb #157|rb #200|sh #*"},
        // VP6: adjustment, frame header, encoded rows and columns, displayed rows and columns.
        {video("14 08 00 30 0000 1112 1E28"), "vp6  640x472 453120", ""},
        {video("14 80 01 36 0000 1112 1E28"), "vp6  632x480 455040", ""},
        {video("14 00 7E 36 1112 1E28"), "vp6  640x480 460800", ""},
        {video("15 00 80FFFF 00 36 1112 1E28"), "vp6a 640x480 460800", ""},
        {video("24 00 80"), "vp6  8x8 96",
         "sh zoflvd vp6: not an I-Frame, can't get width and height!|cut"},
        {video("14 01 00 36 1112 1E00"), "vp6  8x8 96", "sh #*|cut"},
        {video("14 00 00 30 0000 1112 1E"), "vp6  8x8 96", "rb #112|sh #*|cut"},
        {video("11 0102", 20.9, 10), "jpeg 20x10 300 [0102]", ""},
        {video("10", 40000, 40000), "unkn 40000x40000 252516352", ""}, // both wrap
        {video("10", 30000, 30000), "unkn 30000x30000 -797483648", ""},
        {video("19/1F", INFINITY, 40000), "0 -1x40000 -60000", "sh #*|sh #*|cut"},
        {video(unit + "/" + unit + "/" + avc), with_sets.c_str(), ""},
        {video("17 02 000000/" + avc), "h264 8x8 96", ""},
        {video(unit), "h264 8x8 96", "cut"},
        {video("17 00 000000 01 42 00 1E FF E0 00"), "h264 8x8 96", ""},
        {video("17 00 0000"), "h264 8x8 96", "rb #112|rb #245|sh #*"},
        {video(avc.substr(0, avc.size() - 2)), "h264 8x8 96", "rb #112|sh #*|sh #*"},
        {video(bad_sps), "h264 8x8 96",
         "sh h264 header parsing fail: first byte of sps packet should be 0x67!|sh #*|sh #*"},
    };
    for (const OpenCase& c : cases)
        run(c);
}

TEST(Headers, Audio)
{
    const char* const formats[] = {"lpcm 5000", "apcm 5000", "llpc 5000", "nm16 16000",
                                   "nm8, 8000", "nm   5000", "alaw 5000", "mlaw 5000",
                                   "0 5000",    "spx, 5000", "0 5000"};
    const uint8_t codes[] = {0x02, 0x12, 0x32, 0x42, 0x52, 0x62, 0x72, 0x82, 0x92, 0xB2, 0xD2};
    for (size_t i = 0; i < std::size(codes); ++i)
        EXPECT_EQ(Dmx(tags(8, {{codes[i], 7}})).text(), formats[i] + std::string("x16 1 0 [07]"));
    const struct {
        const char *body, *expected;
    } cases[] = {
        {"0F", "lpcm 44000x16 2 0"},
        {"08", "lpcm 22000x8 1 0"},
        {"05", "lpcm 11000x8 2 0"},
        {"2F FFFB9064 0102", "85 44100x16 2 128000 [FFFB90640102]"},
        {"2F 00FF12 FFFB9064", "85 44100x16 2 128000 [FFFB9064]"},
        {"C2 FFF364C4", "0 24000x16 1 48000 [FFF364C4]"},
        // Every version, layer and mode, and the ends of the bitrate tables.
        {"2F FFFFE440", "85 48000x16 2 448000 [FFFFE440]"},
        {"2F FFFDE880", "85 32000x16 2 384000 [FFFDE880]"},
        {"2F FFFBE800", "85 32000x16 2 320000 [FFFBE800]"},
        {"2F FFF7E000", "85 22050x16 2 256000 [FFF7E000]"},
        {"2F FFF5E8C0", "85 16000x16 1 160000 [FFF5E8C0]"},
        {"2F FFE31400", "85 12000x16 2 8000 [FFE31400]"},
        {"2F FFE3F800", "85 8000x16 2 0 [FFE3F800]"},
        {"2F FFE20000", "85 11025x16 2 0 [FFE20000]"},
        {"AF 00 1210", "255 44100x16 2 0"},
        {"AF 01 0102", "255 44000x16 2 0"},
        {"AF 00 17805DC000", "255 48000x16 0 0"}, // an explicit rate
        {"AF 00 F8B8E0", "255 7350x16 8 0"},      // an escaped object type
        {"AF 00 16B0", "255 0x16 6 0"},
        {"AF 00 1740", "255 0x16 1 0"},
        {"AF 00 11F8", "255 48000x16 1 0"},
    };
    for (const auto& c : cases)
        run({tags(8, {hex(c.body)}), c.expected, ""});
}

TEST(Headers, FailuresOfTheOpen)
{
    const Bytes scrn = video("13"), mp3 = tags(8, {hex("2F FFFB9064")});
    std::vector<OpenCase> cases = {
        {video("10", 0, 9), "", "sh #*"},
        {video("10", 9, -9), "", "sh #*"},
        {video("10", 0x55555555, 1), "", "sh #*"},
        {cut(scrn, scrn.size() - 5), "", "cut|sh #*"},
        {scrn, "", "sh #*", 2},
        {video("19"), "", "sh #*|sh #*", -1, MemFile::Skip},
        {mp3, "", "sh #*", 2},
        {mp3, "", "sh #*|sh #*|sh #*", 3},
        {tags(8, {{0x0F, 1}}), "", "sh #*|sh #*", 3},
        {tags(8, {{}}), "", "rb #157|rb #200|sh #*|sh sh_audio() failed|sh #*"},
        {tags(8, {hex("2F FFDF E0FF")}), "", "rb #112|sh #*|sh #*"},
        {tags(8, {hex("2F FFFB90")}), "", "rb #157|rb #200|sh #*|sh #*"},
        {tags(8, {hex("AF")}), "", "rb #112|sh #*|sh #*"},
        {tags(8, {hex("AF 00 12")}), "", "rb #166|rb #200|sh #*|sh #*"},
    };
    for (const char* body : {"EF", "FF", "2F FFEB9064", "2F FFF99064", "2F FFFB9C64", "AF 02"})
        cases.push_back({tags(8, {hex(body)}), "", "sh #*|sh #*"});
    for (const OpenCase& c : cases) {
        const std::string log = std::string(c.log) + "|sh sh_init() failed|zoflvd_create() failed";
        run({c.file, "err -3", log.c_str(), c.nth_alloc, c.fault});
    }
    run({cut(mp3, mp3.size() - 5), "err -3", "cut|sh #*|zoflvd_create() failed"});
    const std::pair<uint8_t, std::string> headers[] = {// none can be shorter
                                                       {8, "2FFFFB9064"},
                                                       {8, "AF0017805DC000"},
                                                       {8, "AF00F8B8E0"},
                                                       {9, "1330A03078"},
                                                       {9, "14000030000011121E28"},
                                                       {9, "1500808080003611121E28"},
                                                       {9, h263(1, hex("01020304"), 1)}};
    for (const auto& [type, header] : headers) {
        for (size_t n = 0; n <= header.size() / 2; ++n)
            EXPECT_EQ(Dmx(tags(type, {cut(hex(header), n)})).err, 2 * n < header.size() ? -3 : 0)
                << header;
    }
    ZOFLVD_SH sh{};
    for (const uint8_t type : {uint8_t{18}, uint8_t{8}}) {
        sh.strm_type = type;
        zoflvd_sh_upd(&sh, 9);
        EXPECT_EQ(sh.max_frm_size, type == 8 ? 9 : 0);
    }
}

TEST(Headers, SearchesAHundredTags)
{
    const struct {
        int units, foreign; // video tags before the configuration, audio tags behind each
        bool found;
    } cases[] = {{99, 0, true}, {100, 0, false}, {49, 1, true}, {50, 1, false}};
    for (const auto& c : cases) {
        FlvBuilder b = flv(1, {amf_prop("width", amf_num(8)), amf_prop("height", amf_num(8))});
        for (int i = 0; i < c.units * (1 + c.foreign); ++i)
            b.tag(i % (1 + c.foreign) ? 8 : 9, 0, nal);
        Dmx d(b.tag(9, 0, config).tag(9, 0, nal).bytes());
        ASSERT_NE(d.h, nullptr);
        const ZOFLVD_SH& sh = d.h->sh[0];
        EXPECT_TRUE(sh.width == (c.found ? 64 : 8) && (sh.csd != nullptr) == c.found) << c.units;
        const size_t next = b.tags().size() - (c.found ? 1 : c.foreign ? 3 : 2);
        const auto pos = static_cast<int64_t>(b.tags()[next].pos); // behind the last one examined
        EXPECT_TRUE(sh.first_tag_pos == pos && sh.data_start == pos) << sh.first_tag_pos;
        EXPECT_EQ(sh.data_len, static_cast<int64_t>(b.size()) - pos);
    }
}

TEST(Headers, VideoRates)
{
    const double cases[][6] = {{10, 25.7, 100000, 257, 25, 389 * 25}, // the last three: expected
                               {0, INFINITY, 1, 0, INT32_MAX, 0},
                               {INFINITY, 25, 1e300, INT32_MAX, 25, 2147483623}, // wraps
                               {1, 1, -5.5, 1, 1, -5}};
    for (const auto& c : cases) {
        const Bytes rate = amf_prop("framerate", amf_num(c[1]));
        const Bytes size = amf_prop("videosize", amf_num(c[2]));
        Dmx d(tags(9, {config}, {amf_prop("duration", amf_num(c[0])), rate, size}));
        const ZOFLVD_SH& sh = d.h->sh[0];
        EXPECT_TRUE(sh.frm_cnt == c[3] && sh.frame_rate == c[4] && sh.byte_rate == c[5]) << c[2];
    }
}

enum { Lists = 9, Poc0 = -1, Poc2 = -3 };

/// A sequence parameter set. `chroma`: chroma_format_idc, Lists, or -1 for a profile without;
/// `cycle`: the count of order count type 1, or another type.
Bytes sps(uint8_t profile, int chroma, int64_t cycle, uint64_t width, uint64_t height, int fields,
          const std::vector<uint64_t>& crop = {})
{
    Bits b;
    b.raw({0x67, profile, 0x40, 0x1E}).ue(0);
    if (chroma == Lists) {
        b.ue(1).ue(0).ue(0).u(3, 3).u(16, 0xFFFF); // a list of differences of 0
        b.u(1, 1).se(-8).u(5, 1);                  // one ended at once; four are absent
        for (int i = 0; i < 64; ++i)
            b.se(1);
        b.u(1, 1).se(2147483647).se(-2147483647).u(62, ~0ULL);
    } else if (chroma >= 0) {
        b.ue(static_cast<uint64_t>(chroma)).u(chroma == 3, 0).ue(0).ue(0).u(2, 0);
    }
    b.ue(4);
    if (cycle < 0) {
        b.ue(static_cast<uint64_t>(-1 - cycle)).u(cycle == Poc0, 1); // log2_max_... 0
    } else {
        b.ue(1).u(1, 0).se(-3).se(4).ue(static_cast<uint64_t>(cycle));
        for (int64_t i = 0; cycle <= 256 && i < cycle; ++i)
            b.se(1);
    }
    b.ue(3).u(1, 0).ue(width - 1).ue(height - 1).u(1, !fields).u(fields, 1).u(1, 1);
    b.u(1, !crop.empty());
    for (const uint64_t offset : crop)
        b.ue(offset);
    return b.u(1, 0).trailing().bytes();
}

struct Record {
    int rc, csd_size, body_len, rec_len;
    ZOFLVD_SH sh;
    Bytes out; // of exactly the size measured
};

Record parse(const Bytes& record)
{
    const Bytes b(record);
    ZOFLVD_RDBUF rb{0, b.data(), b.data(), b.data() + b.size(), static_cast<uint32_t>(b.size())};
    Record r{-7, -7, -7, -7, {}, {}};
    r.rc = sh_video_avc_dec_cfg(&r.sh, &rb, nullptr, &r.csd_size, &r.body_len, &r.rec_len);
    if (r.rc == 0) {
        zoflvd_rdbuf_rewind(&rb, r.rec_len);
        r.out.resize(static_cast<size_t>(r.csd_size));
        r.rc = sh_video_avc_dec_cfg(&r.sh, &rb, r.out.data(), nullptr, nullptr, nullptr);
    }
    return r;
}

TEST(AvcConfig, SequenceParameterSets)
{
    const struct {
        Bytes unit;
        int width, height; // 0: refused
    } cases[] = {
        {sps(66, -1, Poc0, 80, 45, 0), 1280, 720},
        {sps(77, -1, Poc0, 120, 68, 0, {0, 0, 0, 4}), 1920, 1080},
        {sps(77, -1, Poc2, 120, 34, 1, {0, 0, 0, 2}), 1920, 1080},
        {sps(100, 0, Poc2, 4, 3, 0, {1, 2, 3, 4}), 61, 41},
        {sps(100, 1, Poc2, 4, 3, 0, {1, 2, 3, 4}), 58, 34},
        {sps(122, 2, Poc2, 4, 3, 0, {1, 2, 3, 4}), 58, 41},
        {sps(144, 3, Poc2, 4, 3, 0, {1, 2, 3, 4}), 61, 41},
        {sps(110, 2, Poc2, 4, 3, 1, {1, 2, 3, 4}), 58, 82},
        {sps(244, -1, Poc2, 4, 3, 0, {1, 0, 0, 0}), 62, 48},
        {sps(100, 4, Poc2, 4, 3, 0), 64, 48},
        {sps(100, 4, Poc2, 4, 3, 0, {0, 0, 0, 0}), 0, 0},
        {sps(100, Lists, Poc2, 4, 3, 0), 64, 48},
        {sps(66, -1, 2, 4, 3, 0), 64, 48},
        {sps(66, -1, 255, 4, 3, 0), 64, 48},
        {sps(66, -1, 256, 4, 3, 0), 0, 0},
        {sps(66, -1, 0x7FFFFFFF, 4, 3, 0), 0, 0},
        {sps(66, -1, 0x80000000, 4, 3, 0), 64, 48}, // negative: none
        {sps(66, -1, Poc2, 1, 1, 0, {4, 4, 0, 0}), 0, 0},
        {sps(66, -1, Poc2, 1, 1, 0, {4, 3, 0, 7}), 2, 2},
        // Sums and products that 32 bits would turn into pictures.
        {sps(66, -1, Poc2, 4, 3, 0, {0xFFFFFFFE, 2, 0, 0}), 0, 0},
        {sps(66, -1, Poc2, 1, 1, 0, {0, 0, 0x40000000, 0x40000000}), 0, 0},
        {sps(66, -1, Poc2, 0x10000004, 3, 0), 0, 0},
        {sps(66, -1, Poc2, 4, 0x10000004, 1), 0, 0},
        {cat({{0x67}, Bytes(32766)}), 16, 32}, // every code is one bit
        {hex("47 42 00 1E 88"), 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        LogCapture log;
        const Record r = parse(avc_record({c.unit}, {pps}));
        EXPECT_EQ(r.rc, c.width ? 0 : -1);
        EXPECT_TRUE(r.sh.width == c.width && r.sh.height == c.height) << r.sh.width;
        EXPECT_TRUE(c.width || log.texts().size() == 2) << ::testing::PrintToString(log.texts());
    }
}

TEST(AvcConfig, Records)
{
    const Bytes unit = cat({sps64, Bytes(25 - sps64.size())});
    Record r = parse(cat({avc_record({unit}, {fill(5)}), fill(9)}));
    EXPECT_TRUE(r.rc == 0 && r.csd_size == 38 && r.body_len == 36 && r.rec_len == 41);
    EXPECT_TRUE(r.out == cat({code, unit, code, fill(5)}) && r.sh.h264_frm_len_size == 4);

    const Bytes record = avc_record({sps64, fill(6)}, {{}, pps}, 3); // the second is not parsed
    r = parse(record);
    EXPECT_TRUE(r.rc == 0 && r.out == cat({code, sps64, code, fill(6), code, code, pps}));
    EXPECT_EQ(r.sh.h264_frm_len_size, 3);
    for (size_t length = 0; length < record.size(); ++length) {
        r = parse(cut(record, length));
        EXPECT_TRUE(r.rc == -1 && r.csd_size == -7 && r.body_len == -7 && r.rec_len == -7);
    }
    LogCapture log; // negative lengths
    EXPECT_EQ(parse(hex("01 42 00 1E FF E1 8000")).rc, -1);
    EXPECT_EQ(parse(hex("01 42 00 1E FF E0 01 FFFF")).rc, -1);
    EXPECT_TRUE(log.is(lines("sh #*|sh #*")));
}

} // namespace
