// SPDX-License-Identifier: Apache-2.0
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"

#include <climits>

namespace {

/// The bytes 0 to 19.
struct Source : android::DataSourceHelper {
    Source() : DataSourceHelper(nullptr) {}
    ssize_t readAt(off64_t offset, void* buf, size_t size) override
    {
        ssize_t n = 0;
        for (; offset < 20 && n < static_cast<ssize_t>(size); ++offset)
            static_cast<uint8_t*>(buf)[n++] = static_cast<uint8_t>(offset);
        return broken ? -1 : n;
    }
    android::status_t getSize(off64_t* size) override
    {
        if (!broken)
            *size = 20;
        return broken ? -1 : 0;
    }
    bool broken = false;
};

struct Mfal : testing::Test {
    Mfal()
    {
        EXPECT_EQ(zocmn_mfal_init(&mfal, &source), 0);
        fh = mfal.open(&mfal, 6);
    }
    ~Mfal() override
    {
        mfal.close(fh);
        zocmn_mfal_deinit(&mfal);
    }
    Source source;
    _ZOCMN_MFAL mfal;
    void* fh;
    LogCapture log;
};

} // namespace

TEST_F(Mfal, ReadsAndMoves)
{
    const struct {
        long long at, skip;
        int skipped;
        long long pos;
        int got; // of 15 bytes
    } cases[] = {
        {0, 0, -1, 0, 15}, {10, LLONG_MAX, -1, 10, 10}, // the sum has no value
        {10, 9, 0, 19, 1}, {10, 50, 0, 60, 0},          {LLONG_MAX, 1, -1, LLONG_MAX, 0},
    };
    uint8_t buf[15];
    long long n = -1;
    for (auto c : cases) {
        EXPECT_EQ(mfal.setpos(fh, &c.at), 0);
        EXPECT_EQ(mfal.skip(fh, &c.skip), c.skipped);
        EXPECT_EQ(mfal.read(fh, buf, 15), c.got);
        EXPECT_EQ(mfal.getpos(fh, &n), 0);
        EXPECT_EQ(n, c.pos + c.got);
        EXPECT_TRUE(c.got == 0 || buf[c.got - 1] == c.pos + c.got - 1);
    }
    EXPECT_EQ(mfal.getsize(fh, &n), 0);
    EXPECT_EQ(n, 20);
    source.broken = true;
    EXPECT_EQ(mfal.getsize(fh, &n), 0);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(mfal.setpos(fh, &n), 0);
    EXPECT_EQ(mfal.read(fh, buf, 4), 0);
    EXPECT_EQ(mfal.write(fh, nullptr, 4) | mfal.ioctl(fh, 1, buf), 0);
    EXPECT_EQ(mfal.ioctl(fh, 2, buf), -1);
    EXPECT_EQ(mfal.read(nullptr, nullptr, 0), 0);
    EXPECT_TRUE(log.is({}));
}

TEST_F(Mfal, MissingArguments)
{
    static long long n; // shared by the calls below
    static uint8_t buf[1];
    const struct {
        int (*call)(_ZOCMN_MFAL& m, void* handle);
        const char* argument;
        int line;
    } cases[] = {
        {[](auto& m, void*) { return m.open(nullptr, 0) ? 0 : -1; }, "mfal", 102},
        {[](auto& m, void*) { return m.close(nullptr), -1; }, "fp", 134},
        {[](auto& m, void*) { return m.read(nullptr, nullptr, 1); }, "buf", 151},
        {[](auto& m, void*) { return m.read(nullptr, buf, 1); }, "fp", 152},
        {[](auto& m, void*) { return m.write(nullptr, buf, 1); }, "fp", 165},
        {[](auto& m, void*) { return m.getpos(nullptr, nullptr); }, "p", 174},
        {[](auto& m, void*) { return m.getpos(nullptr, &n); }, "fp", 175},
        {[](auto& m, void*) { return m.setpos(nullptr, nullptr); }, "p", 188},
        {[](auto& m, void*) { return m.setpos(nullptr, &n); }, "fp", 189},
        {[](auto& m, void*) { return m.skip(nullptr, nullptr); }, "fsize", 203},
        {[](auto& m, void*) { return m.skip(nullptr, &n); }, "fp", 204},
        {[](auto& m, void*) { return m.getsize(nullptr, nullptr); }, "fsize", 224},
        {[](auto& m, void*) { return m.getsize(nullptr, &n); }, "fp", 225},
        {[](auto& m, void*) { return m.ioctl(nullptr, 1, nullptr); }, "fp", 239},
        {[](auto& m, void* some) { return m.ioctl(some, 1, nullptr); }, "arg", 240},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.call(mfal, fh), -1) << c.line;
        EXPECT_TRUE(log.is({"E ZoFLVExtractor: [libextractor/mfal/zocmn_mfal_android_q:" +
                            std::to_string(c.line) + "] assert failed! (" + c.argument + ")\n"}));
    }
}

TEST_F(Mfal, WithoutASource)
{
    _ZOCMN_MFAL bare;
    EXPECT_EQ(zocmn_mfal_init(&bare, nullptr), 0);
    EXPECT_EQ(bare.open(&bare, 0), nullptr);
    zocmn_mfal_deinit(&bare);
    EXPECT_EQ(bare.ctx, nullptr);
    EXPECT_EQ(mfal.open(&bare, 0), nullptr);
    EXPECT_TRUE(log.is({"E ZoFLVExtractor: not supported", "E ZoFLVExtractor: not supported"}));
    zocmn_mfal_deinit(nullptr);
    HeapFaults heap;
    heap.fail(0, true);
    EXPECT_EQ(mfal.open(&mfal, 0), nullptr);
    EXPECT_EQ(zocmn_mfal_init(&bare, &source), -5);
    EXPECT_TRUE(log.is({}));
}
