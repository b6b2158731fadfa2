// SPDX-License-Identifier: Apache-2.0
/// @file
/// A demuxer and a stream opened over bytes in memory, told in short texts for tables of cases.
#pragma once

#include "tests/support/flv_builder.h"
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"
#include "tests/support/mem_file.h"
#include "zoflv/dmx/zoflvd_kf.h"
#include "zoflv/dmx/zoflvd_priv.h"
#include "zoflv/dmx/zoflvd_scan.h"
#include "zoflv/dmx/zoflvds_priv.h"

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>

/// Log lines from texts separated by '|': errors of "zoflvd", after "sh ", "rb " or "md " those of
/// "zoflvd_sh", "_rdbuf" or "_metadata", after "W " warnings of "zoflvd", after "= " a whole line;
/// "cut" is what a block that the file cannot fill logs.
inline LogCapture::Lines lines(const std::string& texts)
{
    static const std::map<std::string, std::string> prefixes = {{"sh", "E zoflvd_sh: "},
                                                                {"rb", "E zoflvd_rdbuf: "},
                                                                {"md", "E zoflvd_metadata: "},
                                                                {"W", "W zoflvd: "},
                                                                {"=", ""}};
    std::istringstream in(texts);
    LogCapture::Lines out;
    for (std::string text; std::getline(in, text, '|');) {
        if (text == "cut") {
            out.push_back("W zoflvd_rdbuf: fread() failed, EOF?");
            text = "rb zoflvd_rdbuf_init() failed";
        }
        if (text.empty())
            continue;
        const auto p = prefixes.find(text.substr(0, text.find(' ')));
        const bool found = p != prefixes.end();
        out.push_back(found ? p->second + text.substr(p->first.size() + 1) : "E zoflvd: " + text);
    }
    return out;
}

inline std::string to_hex(const Bytes& bytes)
{
    std::string out;
    for (const uint8_t byte : bytes)
        out += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15]};
    return out;
}

/// A file header and a metadata tag, which open without a log line.
inline FlvBuilder flv(uint8_t flags, std::initializer_list<Bytes> props = {})
{
    return FlvBuilder().header(flags).tag(18, 0, on_meta_data(props));
}

struct Dmx {
    /// The first file call of kind `fault` fails.
    explicit Dmx(const Bytes& data, int64_t duration = 0, MemFile::Kind fault = MemFile::Any)
        : file(data), h(zoflvd_create(file.fail(fault, fault == MemFile::Any ? -1 : 0).mfal(),
                                      &duration, &info, &err))
    {}
    ~Dmx() { zoflvd_delete(h); }

    /// "scrn 224x184 61824; lpcm 44000x16 1 0 [codec data]" and so on, or "err -3".
    std::string text() const
    {
        std::ostringstream out;
        if (!h)
            out << "err " << err;
        for (int i = 0; h && i < info.strm_cnt; ++i) {
            const ZOFLVD_SH& sh = h->sh[i];
            const std::string fourcc(reinterpret_cast<const char*>(&sh.fourcc), 4);
            out << (i ? "; " : "") << (fourcc[1] ? fourcc : std::to_string(sh.fourcc)) << " "
                << sh.width << "x" << sh.height << " ";
            if (sh.strm_type == 9)
                out << sh.max_frm_size;
            else
                out << sh.channels << " " << sh.bit_rate;
            if (sh.csd)
                out << " [" << to_hex(Bytes(sh.csd, sh.csd + sh.csd_size)) << "]";
            EXPECT_EQ(values(info.codec[i], info.strm_type[i], sh.valid),
                      values(sh.fourcc, sh.strm_type, sh.strm_type == 8 || sh.fourcc));
            if (sh.strm_type == 8) {
                EXPECT_EQ(values(sh.byte_rate, sh.max_frm_size),
                          values(sh.bit_rate / 8, sh.bit_rate / 8));
            }
        }
        return out.str();
    }

    MemFile file;
    ZOFLVD_INFO info;
    int err = 77;
    ZOFLVD* h;
};

struct OpenCase {
    Bytes file;
    std::string expected; ///< Dmx::text()
    std::string log;      ///< after an error the open's own last line follows
    int nth_alloc = -1;   ///< this allocation fails
    MemFile::Kind fault = MemFile::Any;
};

inline void run(const std::vector<OpenCase>& cases)
{
    for (const OpenCase& c : cases) {
        SCOPED_TRACE(c.expected + " <- " + to_hex(c.file).substr(0, 300));
        HeapFaults heap;
        LogCapture log;
        heap.fail(c.nth_alloc);
        EXPECT_EQ(Dmx(c.file, 0, c.fault).text(), c.expected);
        const bool error = c.expected.rfind("err", 0) == 0;
        EXPECT_TRUE(log.is(lines(c.log + (error ? "|zoflvd_create() failed" : ""))));
        EXPECT_EQ(heap.live(), 0);
    }
}

/// A stream of a demuxer of its own; the counts of the file start after its open.
struct Strm : Dmx {
    explicit Strm(const Bytes& data, int indx = 0) : Dmx(data), s(zoflvds_open(h, indx, &err))
    {
        file.reset();
    }
    ~Strm() { zoflvds_close(s); }

    /// Reads into a block of exactly `size` bytes; negative: asks for the length.
    int read(int size = 4096)
    {
        const std::unique_ptr<uint8_t[]> buf(size < 0 ? nullptr : new uint8_t[size_t(size)]);
        len = -77;
        const int rc = zoflvds_get_frm(s, buf.get(), size, &len, &time, &next);
        frame = Bytes(buf.get(), buf.get() + (rc == 0 && buf ? len : 0));
        return rc;
    }

    ZOFLVDS* s;
    Bytes frame;
    int len = 0;
    int64_t time = 0;
    int64_t next = 0;
};
