// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <zoflv_host/data_source.h>

#include <cstdio>
#include <fcntl.h>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

using Bytes = std::vector<uint8_t>;
using zoflv_host::FileDataSource;

Bytes random_bytes(size_t count)
{
    std::mt19937_64 random(1);
    Bytes bytes(count);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

/// A file that is gone at the end of the test, and its source.
struct TempFile {
    explicit TempFile(const Bytes& bytes)
    {
        char path[] = "/tmp/zoflv-source-XXXXXX";
        fd = ::mkstemp(path);
        append(bytes);
        std::string error;
        source = FileDataSource::open(path, &error);
        ::unlink(path);
    }
    ~TempFile() { ::close(fd); }
    void append(const Bytes& bytes)
    {
        EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    /// @return the bytes read
    Bytes read(size_t offset, size_t size) const
    {
        Bytes bytes(size);
        android::CDataSource* const record = source->record();
        const ssize_t n =
            record->readAt(record->handle, static_cast<off64_t>(offset), bytes.data(), size);
        bytes.resize(static_cast<size_t>(std::max(n, ssize_t{0})));
        return bytes;
    }

    int fd;
    std::unique_ptr<FileDataSource> source;
};

Bytes slice(const Bytes& bytes, size_t offset, size_t size)
{
    offset = std::min(offset, bytes.size());
    const auto start = bytes.begin() + static_cast<ptrdiff_t>(offset);
    return {start, start + static_cast<ptrdiff_t>(std::min(size, bytes.size() - offset))};
}

/// A place to read: on from the last, back from it, or anywhere.
struct Walk {
    explicit Walk(unsigned seed) : random(seed) {}
    void step(size_t limit)
    {
        at = at + size;
        const unsigned way = random() % 16;
        if (way < 3)
            at += random() % (way == 0 ? 100000 : 3000);
        else if (way < 6)
            at -= std::min<size_t>(at, random() % 200 + size);
        else if (way == 6)
            at = random() % (limit + 100);
        size = way == 7 ? random() % 150000 : random() % 8 == 0 ? random() % 6000 : random() % 40;
    }
    std::mt19937 random;
    size_t at = 0, size = 0;
};

} // namespace

/// Of two readers, while the file grows and then shrinks.
TEST(FileSource, GivesTheBytesOfTheFile)
{
    const Bytes whole = random_bytes(700000);
    const size_t grown = 400000;
    TempFile file(slice(whole, 0, grown));
    Bytes now = slice(whole, 0, grown);
    Walk walks[] = {Walk(1), Walk(2)};
    for (int i = 0; i < 40000; ++i) {
        if (i == 10000) {
            file.append(slice(whole, grown, whole.size()));
            now = whole;
        }
        Walk& walk = walks[i % 3 == 0];
        walk.step(now.size());
        ASSERT_EQ(file.read(walk.at, walk.size), slice(now, walk.at, walk.size)) << "read " << i;
    }
    ASSERT_EQ(::ftruncate(file.fd, 1000), 0);
    for (int i = 0; i < 10000; ++i) {
        walks[0].step(whole.size());
        const Bytes got = file.read(walks[0].at, walks[0].size);
        ASSERT_EQ(got, slice(whole, walks[0].at, got.size())) << "read " << i;
        ASSERT_GE(got.size(), slice(slice(whole, 0, 1000), walks[0].at, walks[0].size).size());
    }
    android::CDataSource* const record = file.source->record();
    uint8_t byte = 0;
    EXPECT_EQ(record->readAt(record->handle, -1, &byte, 1), -1);
    EXPECT_EQ(record->readAt(record->handle, 0, nullptr, 1), -1);
    EXPECT_EQ(record->readAt(record->handle, INT64_MAX, &byte, 1), 0);
}

/// What of the reads of tags one after the other, and of seeks, reaches the system.
TEST(FileSource, FetchesLittleMoreThanItIsAskedFor)
{
    const size_t size = 20000000;
    const struct {
        const char* name;
        size_t read, skip;                   // bytes, in turn
        uint64_t system_reads, system_bytes; // at most
    } cases[] = {
        {"small frames", 50, 0, size / 65536 + 5, size},
        {"small frames of one of two streams", 11, 3000, size / 65536 + 5, size},
        {"large frames", 90000, 0, size / 90000 + 2, size},
        {"headers between large frames", 11, 90000, size / 90000 + 2, size / 90000 * 4200 + 9000},
        {"headers of tags in a search backwards", 4, static_cast<size_t>(-74), size / 12000 + 10,
         size * 3 / 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempFile file(Bytes(size, 7));
        uint64_t reads = 0;
        const bool back = c.skip > size;
        for (size_t at = back ? size - 4 : 0; at < size; at += c.read + c.skip, ++reads)
            file.read(at, c.read);
        const zoflv_host::ReadCounts counts = file.source->counts();
        EXPECT_EQ(counts.reads, reads);
        EXPECT_LE(counts.bytes, reads * c.read);
        EXPECT_LE(counts.system_reads, c.system_reads);
        EXPECT_LE(counts.system_bytes, c.system_bytes);
    }
}

TEST(FileSource, ServesTwoThreadsAtOnce)
{
    const Bytes whole = random_bytes(3000000);
    const TempFile file(whole);
    const auto pass = [&](size_t piece) {
        size_t wrong = 0;
        for (size_t at = 0; at < whole.size(); at += piece)
            wrong += file.read(at, piece) != slice(whole, at, piece);
        EXPECT_EQ(wrong, 0U);
    };
    std::thread other([&] {
        pass(61);
        pass(40000);
    });
    pass(11);
    pass(4000);
    other.join();
    const zoflv_host::ReadCounts counts = file.source->counts();
    EXPECT_EQ(counts.bytes, 4 * whole.size());
    EXPECT_EQ(counts.reads, whole.size() / 61 + whole.size() / 11 + 2 + 75 + 750);
}
