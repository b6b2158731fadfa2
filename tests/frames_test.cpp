// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"

namespace {

const Bytes sps = avc_sps(4, 3);
const Bytes config = avc_config_tag(avc_record({sps}, {hex("68 CE 06")}));
const std::string csd = "00000001" + to_hex(sps) + "0000000168CE06";
const std::string two_units = "1701000000 00000005 0102030405 00000002 0607";
const std::string two_frame = "000000010102030405000000010607"; // 15 bytes

/// A configuration, `body` at 40 ms and a unit of one byte at 80 ms: 29 bytes behind `body`.
Bytes avc(const std::string& body, int missing = 0, int len_size = 4)
{
    FlvBuilder b = flv(1).tag(9, 0, avc_config_tag(avc_record({sps}, {hex("68 CE 06")}, len_size)));
    b.tag(9, 40, hex(body)).tag(9, 80, avc_tag({{0xAA}}, true, len_size));
    return cut(b.bytes(), b.size() - static_cast<size_t>(missing));
}

/// 5 bytes at 40 ms, 2 at 80 ms.
Bytes pcm(int missing = 0)
{
    const Bytes b = flv(4).tag(8, 40, hex("0E 0102030405")).tag(8, 80, hex("0E 0607")).bytes();
    return cut(b, b.size() - static_cast<size_t>(missing));
}

struct Case {
    Bytes file;
    const char* ops;      ///< q: the length; r: read; r14: into 14 bytes; behind ! with the fault
    std::string expected; ///< rc 0: length or frame@time>next in ms; -4: with the length
    const char* log;
    MemFile::Kind fault = MemFile::Any;
    int nth = -1; ///< file call, or allocation where `fault` is Any
};

void run(const Case& c)
{
    SCOPED_TRACE(c.ops + (" <- " + to_hex(c.file).substr(150, 300)));
    LogCapture log;
    HeapFaults heap;
    {
        Strm t(c.file);
        std::istringstream in(c.ops);
        std::ostringstream out;
        for (std::string op; in >> op;) {
            const bool armed = op[0] == '!';
            t.file.reset().fail(c.fault, armed && c.fault != MemFile::Any ? c.nth : -1);
            heap.fail(armed && c.fault == MemFile::Any ? c.nth : -1);
            op.erase(0, armed);
            const int rc = t.read(op == "q" ? -1 : op == "r" ? 4096 : std::stoi(op.substr(1)));
            out << (out.tellp() > 0 ? " " : "") << rc;
            if (rc == -4 || (rc == 0 && op == "q"))
                out << ":" << t.len;
            else if (rc == 0)
                out << ":" << to_hex(t.frame);
            if (rc == 0)
                out << "@" << t.time / 10000 << ">" << t.next / 10000;
        }
        EXPECT_EQ(out.str(), c.expected);
    }
    EXPECT_TRUE(log.is(lines(c.log)));
    EXPECT_EQ(heap.live(), 0);
}

TEST(Frames, Avc)
{
    const std::string next = " 0:00000001AA@80>80 1 1"; // the last frame's next time is its own
    const std::string two = "0:15@40>40 0:15@40>40 0:" + two_frame + "@40>80" + next;
    const std::string none = "0:0@40>40 0:0@40>40 0:@40>80" + next;
    const std::string cfg = to_hex(config), csd_frame = "0:" + csd + "@40>80" + next;
    const int size = static_cast<int>(csd.size() / 2);
    const std::string exact = "r" + std::to_string(size) + " r r r";
    const std::string too_small = "q r" + std::to_string(size - 1) + " r r";
    const std::string small = "0:" + std::to_string(size) + "@40>40 1 1 1";
    const std::string one = " 0:00000001AA@80>80 1";
    const Case cases[] = {
        {avc(two_units), "q q r15 r5 r q", two, ""},
        {avc("1701000000 000005 0102030405 000002 0607", 0, 3), "q q r15 r r q", two, ""},
        {avc("2701000000 0005 0102030405 0002 0607", 0, 2), "q q r r r r", two, ""},
        {avc("FF01000000 05 0102030405 02 0607", 0, 1), "q q r r r r", two, ""},
        {avc("1701000000 000003E8 0102"), "r r r r", "0:000000010102@40>80" + next, ""},
        {avc("1701000000 FFFFFFFF 01"), "r r r r", "0:0000000101@40>80" + next, ""},
        {avc("1701000000 00000000 00000001 09"), "r9 r r r", "0:000000010000000109@40>80" + next,
         ""},
        {avc("1702000000 00"), "q q r0 r r r", none, ""}, // no frame in it
        {avc("17FF000000 0011"), "q q r r r r", none, ""},
        {avc("1700000000 0142001EFFE000"), "q q r0 r r r", none, ""},
        {avc(cfg), exact.c_str(), csd_frame, ""}, // a configuration
        {avc(cfg), too_small.c_str(), small, "#1004|#1146"},
        {avc(cfg), "!q r r", "1 1 1", "#992|#1146", MemFile::Any, 0},
        {avc(cfg, 31), "r r r", "1 1 1", "cut|#998|#1146"},
        {avc("1700000000 0142001EFFE1 FFFF"), "q r", "1 1", "sh #*|#1004|#1146"},
        {avc("1700000000 0142001EFFE1 0001 27 00"), "q r r", "0:5@40>40 1 1",
         "sh h264 header parsing fail: first byte of sps packet should be 0x67!|sh #*|#1004|#1146"},
        {avc(two_units), "q r14 r r", "0:15@40>40 1 1 1", "#711|#1018|#1146"},
        {avc(two_units), "r10 r", "1 1", "#711|#1018|#1146"}, // not even the start code
        {avc(two_units), "r9 r r", "1 1 1", "#671|#1018|#1146"},
        {avc(two_units), "r0 r", "1 1", "#671|#1018|#1146"},
        {avc("1701000000 00000001 01 00000000"), "q r", "1 1", "#701|#1018|#1146"},
        {avc("1701000000 000000"), "r r", "1 1", "#701|#1018|#1146"},
        {avc("1701000000 00000009 01", 32), "r r", "1 1", "#691|#1018|#1146"},
        {avc("1701000000 00000009 0102", 30), "q r r", "0:6@40>40 1 1", "#720|#1018|#1146"},
        {avc("1702000000"), "q r r", "1" + one, "#982|#1146"}, // the frame is lost
        {avc("1701"), "r r r", "1" + one, "#982|#1146"},
        {avc("17"), "q r r", "1 1 1", "#1132"},
        {avc(""), "r r", "1 1", "#1132"},
        // Faults of the file: before the tag is located, in the frame, behind it.
        {avc(two_units), "!q q", "1 0:15@40>40", "#804", MemFile::GetPos, 0},
        {avc(two_units), "r !r r r", "0:" + two_frame + "@40>80 1" + one, "#789", MemFile::GetPos,
         0},
        {avc(two_units), "!q q", "1 0:15@40>40", "#2595", MemFile::SetPos, 0},
        {avc(two_units), "q !r q", "0:15@40>40 -1 0:15@40>40", "#1112", MemFile::GetPos, 0},
        {avc(two_units), "q !r r r", "0:15@40>40 1 1 1", "#952|#1146", MemFile::GetPos, 1},
        {avc(two_units), "q !r r r", "0:15@40>40 1" + one, "#960|#1146", MemFile::Skip, 0},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#967|#1146", MemFile::Read, 0},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#974|#1146", MemFile::Read, 1},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#662|#1018|#1146", MemFile::GetPos, 2},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#691|#1018|#1146", MemFile::Read, 4},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#720|#1018|#1146", MemFile::Read, 5},
        {avc(two_units), "q !q r", "0:15@40>40 1 1", "#732|#1018|#1146", MemFile::Skip, 2},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#743|#1018|#1146", MemFile::GetPos, 3},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#1040|#1146", MemFile::SetPos, 0},
        {avc(two_units), "q !q r", "0:15@40>40 1 1", "#1060|#1146", MemFile::SetPos, 0},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#830|#865|#1050|#1146", MemFile::Read, 6},
        {avc(two_units), "q !r r", "0:15@40>40 1 1", "#871|#1050|#1146", MemFile::GetPos, 4},
        {avc(two_units), "q !r r r", "0:15@40>40 0:" + two_frame + "@40>40" + one, "#2595",
         MemFile::SetPos, 1},
    };
    for (const Case& c : cases)
        run(c);
}

TEST(Frames, OtherCodecs)
{
    FlvBuilder b = flv(4).tag(8, 0, aac_config_tag()).tag(8, 40, hex("AF01 010203"));
    const Bytes aac = b.tag(8, 80, hex("AF01")).tag(8, 120, hex("AF00 05")).bytes();
    const std::string last = " 0:0607@80>80", first = "0:5@40>40 0:0102030405@40>80";
    const Case cases[] = {
        {aac, "q r3 r0 r1 r", "0:3@40>40 0:010203@40>80 0:@80>120 0:05@120>120 1", ""},
        {aac, "r2 q", "-4:4 0:0@80>80", ""}, // DataSize - 1
        {pcm(), "q r5 r2 r r", first + last + " 1 1", ""},
        {pcm(), "r4 r r", "-4:5" + last + " 1", ""},
        {pcm(4), "r !r r r", "0:0102030405@40>80 -1 1 1", "#830|#865"},
        {pcm(5), "r r r", "0:0102030405@40>80 1 1", "#1196"},
        {pcm(), "q !r r r", "0:5@40>40 1" + last + " 1", "#1190", MemFile::Skip, 0},
        {pcm(), "q !r r r", "0:5@40>40 1" + last + " 1", "#1196", MemFile::Read, 0},
        {pcm(), "q !r r", "0:5@40>40 -1" + last, "#871", MemFile::GetPos, 1},
        {pcm(), "q !r r", "0:5@40>40 0:0102030405@40>40 1", "cut", MemFile::Read, 2},
        {pcm(), "q !r4 r r", "0:5@40>40 1" + last + " 1", "#912", MemFile::Skip, 0},
        {pcm(), "q !r4", "0:5@40>40 1", "#830|#865|#916", MemFile::Read, 0},
    };
    for (const Case& c : cases)
        run(c);
}

TEST(Frames, BrokenState)
{
    Strm t(avc(two_units));
    LogCapture log;
    int len = 0;
    EXPECT_EQ(zoflvds_get_frm(t.s, nullptr, 0, nullptr, nullptr, nullptr), -1);
    EXPECT_TRUE(zoflvds_get_frm(t.s, nullptr, 0, &len, nullptr, nullptr) == 0 && len == 15);
    EXPECT_TRUE(log.is({}));
    zoflv_file_setpos(&t.s->mfal, t.s->fh, t.s->cur_tag.pos + 12);
    EXPECT_EQ(t.read(), -1);
    zoflv_file_setpos(&t.s->mfal, t.s->fh, t.s->cur_tag.pos + 11);
    EXPECT_EQ(t.read(), 0);
    zoflv_file_setpos(&t.s->mfal, t.s->fh, 0);
    EXPECT_EQ(t.read(), 1);
    t.s->fetch_tag = t.s->cur_tag.found = 0;
    EXPECT_EQ(t.read(), -1);
    EXPECT_TRUE(log.is(lines("err: frame data fp is wrong!|#793|#1108")));
    for (const int len_size : {0, 5}) {
        Strm broken(avc(two_units));
        broken.s->sh.h264_frm_len_size = len_size;
        EXPECT_TRUE(broken.read(-1) == 1 && broken.read() == 1);
        EXPECT_TRUE(log.is(lines("h264_frm_len_size error.|#1018|#1146")));
    }
    for (const bool works : {true, false}) { // the file is elsewhere behind the last unit
        Strm moved(avc(two_units));
        static int calls;
        static int (*getpos)(void*, long long*);
        calls = 0;
        getpos = moved.s->mfal.getpos;
        moved.s->mfal.getpos = [](void* fh, long long* pos) {
            const int rc = getpos(fh, pos);
            *pos += ++calls == 5;
            return rc;
        };
        moved.file.fail(MemFile::SetPos, works ? -1 : 1);
        EXPECT_EQ(moved.read(), works ? 0 : 1);
        EXPECT_TRUE(log.is(lines(works ? "" : "#751|#1018|#1146")));
    }
}

TEST(Frames, Cost)
{
    FlvBuilder b = flv(5).tag(9, 0, config);
    for (int i = 0; i < 16; ++i) // three audio tags behind each picture
        b.tag(i % 4 ? 8 : 9, 0, hex(i % 4 ? "0E 0102030405" : two_units));
    const int cases[][4] = {// stream, reads, bytes, reads for the length alone
                            // AVC: packet type, composition time, 2 x (length, unit),
                            // PreviousTagSize, 3 foreign tags and the next
                            {1, 2 + 4 + 1 + 4, 4 + 15 + 4 + 4 * 11, 2 + 2},
                            // PCM, the third one: payload, PreviousTagSize, 1 foreign tag
                            {0, 1 + 1 + 2, 5 + 4 + 2 * 11, 0}};
    for (const auto& c : cases) {
        Strm t(b.bytes(), c[0]);
        EXPECT_TRUE(t.read() == 0 && t.read() == 0);
        HeapFaults heap;
        t.file.reset();
        EXPECT_EQ(t.read(), 0);
        EXPECT_TRUE(t.file.calls(MemFile::Read) == c[1] && t.file.bytes_read == c[2]);
        EXPECT_EQ(heap.count(), 0);
        t.file.reset();
        EXPECT_TRUE(t.read(-1) == 0 && t.file.calls(MemFile::Read) == c[3]);
    }
}

TEST(Streams, InformationAndCodecData)
{
    // A new configuration changes the stream's record and what follows, not the demuxer's.
    FlvBuilder b = flv(1).tag(9, 0, config);
    b.tag(9, 0, avc_config_tag(avc_record({avc_sps(2, 2)}, {}, 1)));
    Strm t(b.tag(9, 0, hex("1701000000 02 0607")).bytes());
    LogCapture log;
    ZOFLVD_INFO_VID v;
    ZOFLVD_INFO_AUD a;
    EXPECT_TRUE(t.read() == 0 && zoflvds_get_info_vid(t.s, &v) == 0 && v.width == 32);
    EXPECT_TRUE(zoflvds_get_info_aud(t.s, &a) == 0 && a.sample_rate == 32);
    EXPECT_TRUE(t.read() == 0 && to_hex(t.frame) == "000000010607");
    EXPECT_EQ(zoflvds_get_info_vid(t.s, nullptr) + zoflvds_get_info_aud(t.s, nullptr), -2);
    EXPECT_EQ(t.text(), "h264 64x48 4608 [" + csd + "]");
    Bytes buf(csd.size() / 2);
    int size = 0;
    EXPECT_TRUE(zoflvd_get_format(t.h, 0, nullptr, &size) == 0 && 2U * size_t(size) == csd.size());
    EXPECT_TRUE(zoflvds_get_format(t.s, buf.data(), nullptr) == 0 && to_hex(buf) == csd);
    uint8_t* const data = t.s->sh.csd;
    EXPECT_NE(data, t.h->sh[0].csd);
    size = 0;
    std::swap(t.s->sh.csd_size, size);
    EXPECT_EQ(zoflvds_get_format(t.s, buf.data(), nullptr), -3);
    t.s->sh.csd = nullptr;
    EXPECT_EQ(zoflvds_get_format(t.s, buf.data(), nullptr), 0);
    std::swap(t.s->sh.csd_size, size);
    EXPECT_EQ(zoflvds_get_format(t.s, buf.data(), nullptr), -3);
    t.s->sh.csd = data;
    EXPECT_TRUE(log.is({}));
    EXPECT_EQ(zoflvd_get_format(t.h, 1, nullptr, nullptr), -1);
    EXPECT_EQ(zoflvd_get_format(t.h, -1, nullptr, nullptr), -1);
    int err = 77;
    EXPECT_FALSE(zoflvds_open(t.h, 1, &err) || zoflvds_open(t.h, -1, &err) || err != 77);
    EXPECT_TRUE(log.is(lines("#2161|#2161|#2413|#2413")));
    EXPECT_TRUE(t.file.last_mode == 6 && Strm(pcm()).file.last_mode == 2);
    t.h->sh[0].duration = 123; // the stream knows better
    zoflvds_close(zoflvds_open(t.h, 0, nullptr));
    EXPECT_TRUE(zoflvd_get_info(t.h, &t.info) == 0 && t.info.duration == 123);
}

TEST(Streams, WrongHandles)
{
    LogCapture log;
    ZOFLVD no_dmx{};
    ZOFLVDS no_stream{};
    ZOFLVD_INFO i;
    ZOFLVD_INFO_VID v;
    ZOFLVD_INFO_AUD a;
    int n = 77;
    for (ZOFLVD* h : {static_cast<ZOFLVD*>(nullptr), &no_dmx}) {
        EXPECT_EQ(zoflvd_get_info(h, &i) + zoflvd_get_info_vid(h, 0, &v) +
                      zoflvd_get_info_aud(h, 0, &a) + zoflvd_get_format(h, 0, nullptr, &n) +
                      zoflvd_get_idx_table(h, 0, nullptr, 0, &n, &n),
                  -5);
        EXPECT_FALSE(zoflvds_open(h, 0, &n));
        zoflvd_delete(h);
    }
    for (ZOFLVDS* s : {static_cast<ZOFLVDS*>(nullptr), &no_stream}) {
        EXPECT_EQ(zoflvds_get_info_vid(s, &v) + zoflvds_get_info_aud(s, &a) +
                      zoflvds_get_format(s, nullptr, &n) +
                      zoflvds_get_frm(s, nullptr, 0, &n, nullptr, nullptr) +
                      zoflvds_get_idx_table(s, nullptr, 0, &n, &n),
                  -5);
        zoflvds_close(s);
    }
    EXPECT_TRUE(log.is({}) && n == 77);
    EXPECT_EQ(zoflvds_get_frm_finalyze(nullptr, 0, nullptr), -1);
    EXPECT_EQ(zoflvds_get_frm_finalyze(&no_stream, 0, nullptr), -1);
    EXPECT_TRUE(log.is(lines("#859|#859")));
}

} // namespace
