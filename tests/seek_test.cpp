// SPDX-License-Identifier: Apache-2.0
#include "tests/support/demux.h"
#include "tests/support/seek.h"

#include <random>

namespace {

constexpr int64_t MS = ZOFLV_TICKS_PER_MS;
constexpr int64_t SEC = ZOFLV_TICKS_PER_SECOND;

struct Tag {
    int64_t pos, size, time;
    uint8_t type;
    bool kf;
};

uint32_t be_at(const Bytes& bytes, int64_t pos, int n)
{
    uint32_t value = 0;
    for (int i = 0; i < n; ++i)
        value = value << 8 | bytes[static_cast<size_t>(pos + i)];
    return value;
}

/// The tag header at `pos`, its time in ms unsigned.
Tag tag_at(const Bytes& bytes, int64_t pos)
{
    const auto type = static_cast<uint8_t>(be_at(bytes, pos, 1));
    const uint32_t ms = be_at(bytes, pos + 4, 3) | be_at(bytes, pos + 7, 1) << 24;
    return {pos, be_at(bytes, pos + 1, 3), ms * MS, type,
            type == 9 && be_at(bytes, pos + 11, 1) >> 4 == 1};
}

/// The seek's rules on the list of all tags of a sound file.
struct Model {
    Model(const Bytes& bytes, const ZOFLVD_SH& header) : sh(header)
    {
        for (int64_t pos = 13; pos < sh.file_size; pos = tags.back().pos + tags.back().size + 15) {
            tags.push_back(tag_at(bytes, pos));
            if (pos < sh.data_start)
                tags.pop_back(), pos = sh.data_start;
        }
    }

    const ZOFLVD_SH& sh;
    std::vector<Tag> tags;      ///< from `data_start` on
    std::vector<ZOFLVD_KF> idx; ///< one block at most
    int steps = 0;              ///< tags crawled to
};
} // namespace
