// SPDX-License-Identifier: Apache-2.0
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "tests/support/flv_builder.h"
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <climits>

namespace {

struct Source : android::DataSourceHelper {
    explicit Source(const Bytes& bytes) : DataSourceHelper(nullptr), data(bytes) {}
    ssize_t readAt(off64_t offset, void* buf, size_t size) override
    {
        if (broken || offset < 0)
            return -1;
        const size_t at = std::min(static_cast<size_t>(offset), data.size());
        const size_t n = std::min(size, data.size() - at);
        std::copy_n(data.begin() + static_cast<ptrdiff_t>(at), n, static_cast<uint8_t*>(buf));
        return static_cast<ssize_t>(n);
    }
    android::status_t getSize(off64_t* size) override
    {
        if (broken)
            return -1;
        *size = static_cast<off64_t>(data.size());
        return 0;
    }
    Bytes data;
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
    long long pos()
    {
        long long at = -1;
        EXPECT_EQ(mfal.getpos(fh, &at), 0);
        return at;
    }
    Source source{fill(20)};
    _ZOCMN_MFAL mfal;
    void* fh;
    LogCapture log;
};

} // namespace

TEST_F(Mfal, ReadsAndMoves)
{
    uint8_t buf[16] = {};
    void* other = mfal.open(&mfal, 0);
    EXPECT_EQ(mfal.read(fh, buf, 15), 15);
    EXPECT_EQ(buf[14], 14);
    EXPECT_EQ(mfal.read(fh, buf, 15), 5); // across the end
    EXPECT_EQ(buf[4], 19);
    EXPECT_EQ(mfal.read(fh, buf, 15), 0);
    EXPECT_EQ(pos(), 20);
    EXPECT_EQ(mfal.read(other, buf, 1), 1);
    EXPECT_EQ(buf[0], 0);
    mfal.close(other);

    long long at = 10;
    long long n = 0;
    EXPECT_EQ(mfal.setpos(fh, &at), 0);
    EXPECT_EQ(mfal.skip(fh, &n), -1);
    EXPECT_EQ(mfal.skip(fh, &(n = LLONG_MIN)), -1);
    EXPECT_EQ(mfal.skip(fh, &(n = LLONG_MAX)), -1); // the sum has no value
    EXPECT_EQ(pos(), 10);
    EXPECT_EQ(mfal.skip(fh, &(n = 50)), 0);
    EXPECT_EQ(pos(), 60);
    EXPECT_EQ(mfal.read(fh, buf, 1), 0);
    EXPECT_EQ(mfal.setpos(fh, &(at = LLONG_MAX)), 0);
    EXPECT_EQ(mfal.read(fh, buf, 1), 0);
    EXPECT_EQ(mfal.skip(fh, &(n = 1)), -1);
    EXPECT_EQ(pos(), LLONG_MAX);

    long long size = -1;
    EXPECT_EQ(mfal.getsize(fh, &size), 0);
    EXPECT_EQ(size, 20);
    source.broken = true;
    EXPECT_EQ(mfal.getsize(fh, &size), 0);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(mfal.setpos(fh, &(at = 5)), 0);
    EXPECT_EQ(mfal.read(fh, buf, 4), 0);
    EXPECT_EQ(pos(), 5);

    EXPECT_EQ(mfal.write(fh, nullptr, 4), 0);
    EXPECT_EQ(mfal.ioctl(fh, 1, buf), 0);
    EXPECT_EQ(mfal.ioctl(fh, 2, buf), -1);
    EXPECT_EQ(mfal.read(nullptr, nullptr, 0), 0);
    EXPECT_EQ(mfal.read(nullptr, nullptr, -1), 0);
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
    const auto cleared = [](const _ZOCMN_MFAL& record) {
        const _ZOCMN_MFAL zero = {};
        return std::memcmp(&record, &zero, sizeof zero) == 0;
    };
    _ZOCMN_MFAL bare = mfal;
    bare.ctx = nullptr;
    EXPECT_EQ(bare.open(&bare, 0), nullptr);
    EXPECT_TRUE(log.is({"E ZoFLVExtractor: not supported"}));
    zocmn_mfal_deinit(&bare);
    EXPECT_TRUE(cleared(bare));
    EXPECT_EQ(zocmn_mfal_init(&bare, nullptr), 0);
    EXPECT_EQ(bare.open(&bare, 0), nullptr);
    EXPECT_TRUE(log.is({"E ZoFLVExtractor: not supported"}));
    zocmn_mfal_deinit(&bare);
    zocmn_mfal_deinit(nullptr);

    HeapFaults heap;
    heap.fail(0, true);
    EXPECT_EQ(mfal.open(&mfal, 0), nullptr);
    EXPECT_EQ(zocmn_mfal_init(&bare, &source), -5);
    EXPECT_TRUE(cleared(bare));
    EXPECT_TRUE(log.is({}));
}
