// SPDX-License-Identifier: Apache-2.0
// Lists the frames of an FLV file that lies in memory: stream, time in milliseconds, bytes.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>
#include <zoflv/dmx/zoflvd.h>
#include <zoflv/lib/zoflv_set_log.h>

using Bytes = std::vector<char>;
struct Cursor { // what a file handle is here; the position may lie past the end
    const Bytes& file;
    long long pos;
    static Cursor& of(void* fh) { return *static_cast<Cursor*>(fh); }
    long long size() const { return static_cast<long long>(file.size()); }
    int read(void* buf, int n)
    {
        n = static_cast<int>(std::clamp<long long>(size() - pos, 0, n));
        std::copy_n(file.begin() + (n > 0 ? pos : 0), n, static_cast<char*>(buf));
        pos += n;
        return n;
    }
};

int main(int argc, char** argv)
{
    std::ifstream in(argc > 1 ? argv[1] : "", std::ios::binary);
    Bytes file((std::istreambuf_iterator<char>(in)), {});
    zoflv_set_log([](int, auto tag, auto text) { fprintf(stderr, "%s: %s\n", tag, text); });

    _ZOCMN_MFAL mfal{};
    mfal.ctx = &file;
    mfal.open = [](auto* m, auto) -> void* { return new Cursor{*static_cast<Bytes*>(m->ctx), 0}; };
    mfal.close = [](void* fh) { delete &Cursor::of(fh); };
    mfal.read = [](void* fh, void* buf, int size) { return Cursor::of(fh).read(buf, size); };
    mfal.write = [](void*, void*, int) { return -1; }; // never called
    mfal.getpos = [](void* fh, auto* pos) { return *pos = Cursor::of(fh).pos, 0; };
    mfal.setpos = [](void* fh, auto* pos) { return Cursor::of(fh).pos = *pos, 0; };
    mfal.skip = [](void* fh, auto* n) { return Cursor::of(fh).pos += *n, 0; };
    mfal.getsize = [](void* fh, auto* size) { return *size = Cursor::of(fh).size(), 0; };
    mfal.ioctl = [](void*, int, void*) { return -1; }; // never called
    const int64_t duration = 0;                        // not known
    ZOFLVD_INFO info{};
    ZOFLVD* flv = zoflvd_create(&mfal, &duration, &info, nullptr);
    for (int i = 0; flv && i < info.strm_cnt; ++i) {
        ZOFLVDS* stream = zoflvds_open(flv, i, nullptr);
        int64_t time = 0;
        // A frame of which only the length was asked stays the next one.
        for (int n = 0; zoflvds_get_frm(stream, nullptr, 0, &n, nullptr, nullptr) == ZOFLV_OK;) {
            std::vector<uint8_t> frame(static_cast<size_t>(n) + 1);
            if (zoflvds_get_frm(stream, frame.data(), n + 1, &n, &time, nullptr) == ZOFLV_OK)
                std::printf("%d %lld %d\n", i, static_cast<long long>(time / 10000), n);
        }
        zoflvds_close(stream);
    }
    zoflvd_delete(flv);
    return flv ? 0 : 1;
}
