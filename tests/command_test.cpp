// SPDX-License-Identifier: Apache-2.0
// What the command does with each frame of a recording of any length.
#include "tests/support/flv_builder.h"
#include "tools/frame_reader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace {

int64_t allocations = 0;

void count_allocation(const volatile void*, size_t)
{
    ++allocations;
}
void ignore_free(const volatile void*) {}

/// A recording of AVC and AAC with so many frames of each, gone at the end of the test.
struct Recording {
    explicit Recording(int frames)
    {
        FlvBuilder file;
        file.header().tag(9, 0, avc_config_tag(avc_record({avc_sps(40, 30)}, {hex("68 CE")})));
        file.tag(8, 0, aac_config_tag());
        for (uint32_t i = 0; i < static_cast<uint32_t>(frames); ++i) {
            file.tag(9, i * 40, avc_tag({fill(i % 5 == 0 ? 60000 : 700), fill(30)}, i % 5 == 0));
            file.tag(8, i * 40, aac_tag(fill(200)));
        }
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.bytes().data()),
                  static_cast<std::streamsize>(file.size()));
    }
    ~Recording() { ::unlink(path.c_str()); }

    const std::string path = testing::TempDir() + "zoflv-heap-" + std::to_string(::getpid());
};

/// Allocations from the first frame to the end, both tracks read in turn.
int64_t count_allocations(int frames)
{
    const Recording recording(frames);
    LogTap log(false);
    const ExtractorPtr extractor = open_extractor(load_plugin(ZOFLV_PLUGIN), recording.path, log);
    const std::unique_ptr<FrameReader> readers[] = {read_track(*extractor, 0, log),
                                                    read_track(*extractor, 1, log)};
    const int64_t before = allocations;
    for (int i = 0; i < frames; ++i) {
        for (const auto& reader : readers) {
            Frame frame{};
            EXPECT_TRUE(reader->next(&frame) && frame.place);
        }
    }
    for (const auto& reader : readers) {
        Frame frame{};
        EXPECT_FALSE(reader->next(&frame));
        EXPECT_EQ(reader->ending().reason, "");
    }
    return allocations - before;
}

} // namespace

// Of a sanitizer's runtime: is told of every allocation of the process.
extern "C" __attribute__((weak)) int
__sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                          void (*)(const volatile void*));

TEST(Command, AFrameTakesNothingFromTheHeap)
{
    if (__sanitizer_install_malloc_and_free_hooks) {
        ASSERT_NE(__sanitizer_install_malloc_and_free_hooks(count_allocation, ignore_free), 0);
    }
    ::operator delete(::operator new(1));
    if (allocations == 0) // that of undefined behaviour has the function, and calls nothing
        GTEST_SKIP() << "only a sanitizer of memory counts allocations";
    const int64_t few = count_allocations(100);
    EXPECT_GT(few, 0); // the windows of the file
    EXPECT_EQ(count_allocations(1000), few);
}
