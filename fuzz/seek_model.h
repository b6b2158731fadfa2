// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where a seek lands by the rules, worked out on the list of all tags: shares no code with the demuxer.
#pragma once

#include "tests/support/flv_builder.h"
#include "zoflv/dmx/zoflvd_sh.h"

#include <algorithm>
#include <optional>

inline uint32_t be_at(const Bytes& bytes, int64_t pos, int n)
{
    uint32_t value = 0;
    for (int i = 0; i < n; ++i)
        value = value << 8 | bytes[static_cast<size_t>(pos + i)];
    return value;
}

struct ModelTag {
    ModelTag(const Bytes& bytes, int64_t at)
        : pos(at), size(be_at(bytes, at + 1, 3)), type(static_cast<int>(be_at(bytes, at, 1))),
          key(type == 9 && be_at(bytes, at + 11, 1) >> 4 == 1)
    {
        const uint32_t ms = be_at(bytes, at + 4, 3) | be_at(bytes, at + 7, 1) << 24;
        time = static_cast<int32_t>(ms) * MS;
    }
    int64_t pos, size, time;
    int type;
    bool key;
};
using Found = std::optional<ModelTag>;

/// The first plausible tag from `start` on.
inline Found plausible(const Bytes& bytes, int64_t start, int64_t limit)
{
    for (int64_t p = start; p + 15 < limit; ++p) {
        const uint32_t type = be_at(bytes, p, 1);
        if ((type != 8 && type != 9 && type != 18) || be_at(bytes, p + 8, 3) != 0)
            continue;
        const ModelTag tag(bytes, p);
        const int64_t end = p + 11 + tag.size;
        const int64_t prev = end + 4 < limit ? be_at(bytes, end, 4) : 0;
        if (prev == tag.size + 11 || prev == tag.size + 15)
            return tag;
    }
    return {};
}

/// From the estimated offset back to a tag before the time; every round searches to the end, with
/// `search` from an offset.
template <class Search>
Found back_off(const ZOFLVD_SH& sh, int64_t target, Search search)
{
    for (int64_t est = sh.data_start + target / MS * sh.data_len / (sh.duration / MS);;) {
        est -= 32768;
        est = est >= sh.file_size ? sh.file_size * 9 / 10 : std::max(est, sh.data_start);
        const Found tag = search(est);
        if (!tag || tag->pos <= sh.data_start || tag->time < target || est == sh.data_start)
            return tag;
    }
}

/// What the rules give, on the list of the tags of a sound file.
struct SeekModel {
    SeekModel(const Bytes& bytes, const ZOFLVD_SH& header) : sh(header)
    {
        for (int64_t pos = sh.data_start; pos < sh.file_size; pos += tags.back().size + 15)
            tags.emplace_back(bytes, pos);
    }

    Found crawl(const ModelTag* start, int64_t target, int mode)
    {
        const ModelTag *cur = start, *saved = start;
        bool cur_key = false, has_saved = false, at_end = false, again = false;
        const bool video = sh.strm_type == 9;
        bool forward = start->time < target, next_key = video && mode == 1;
        const auto check = [&] {
            if (at_end)
                return forward ? 1 : 2;
            if (cur->type != sh.strm_type || (forward ? cur->time < target : cur->time > target))
                return 0;
            return !video || (forward == next_key ? cur_key : has_saved) ? 2 : 0;
        };
        int count = 0, result = check();
        for (; result == 0; result = check()) {
            if (cur->type == sh.strm_type && (cur_key || !video))
                saved = cur, has_saved = true;
            at_end = cur == (forward ? &tags.back() : &tags.front());
            if (!at_end)
                cur += forward ? 1 : -1, cur_key = cur->key, ++steps;
            if (cur->type == sh.strm_type && count++ == 30720)
                return {};
            const int64_t before = cur->time - 100 * MS;
            if (again || (mode == 0 ? cur->time <= saved->time || before <= target
                                    : cur->time >= saved->time || before >= target))
                continue;
            again = true;
            cur = saved = start;
            cur_key = has_saved = at_end = false;
            forward = mode != 0;
            next_key = forward && video;
            count = 0;
        }
        return result == 1 ? Found() : forward == next_key ? *cur : *saved;
    }

    Found find(int64_t target, int mode)
    {
        const ModelTag* start = nullptr;
        const Found found = back_off(sh, target, [&](int64_t from) -> Found {
            for (start = tags.data(); start < tags.data() + tags.size(); ++start)
                if (start->pos >= from && start->pos + start->size + 15 < sh.file_size)
                    return *start;
            return {};
        });
        return found && target <= sh.duration ? crawl(start, target, mode) : Found();
    }

    /// In a file in order of time, not at the time of a keyframe.
    Found by_index(int64_t time, int mode) const
    {
        Found prev, next;
        for (ModelTag tag : tags) {
            if (!tag.key || next)
                continue;
            const double seconds = static_cast<double>(tag.time / MS) / 1000; // in the metadata
            tag.time = static_cast<int64_t>(seconds * SEC);
            (tag.time > time ? next : prev) = tag;
        }
        const bool closer = mode == 3 && next && next->time - time < time - prev->time;
        return mode == 1 || closer ? next : prev;
    }

    Found seek(int64_t time, int mode)
    {
        const Found prev = mode == 1 ? Found() : find(time, mode % 3);
        const Found next = mode % 2 == 0 ? Found() : find(time, 1);
        return !prev || (next && next->time - time < time - prev->time) ? next : prev;
    }

    const ZOFLVD_SH& sh;
    std::vector<ModelTag> tags; // from `data_start` on
    int steps = 0;              // tags crawled to
};
