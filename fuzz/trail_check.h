// SPDX-License-Identifier: Apache-2.0
/// @file
/// Holds the places of frames that the reader's own reads tell against a walk over the whole file.
#pragma once

#include "fuzz/walk.h"
#include "inspect/tag_trail.h"
#include "libextractor/mfal/zocmn_mfal_android_q.h"

#include <memory>
#include <optional>
#include <vector>

inline bool same_place(const std::optional<zoflv_inspect::FramePlace>& a,
                       const std::optional<zoflv_inspect::FramePlace>& b)
{
    return a.has_value() == b.has_value() &&
           (!a || (a->offset == b->offset && a->pts_us == b->pts_us && a->keyframe == b->keyframe));
}

/// Reads one stream, as long as it gives frames. Returns whether the trail led to the end.
inline bool check_trail_of(ZOFLVD* h, int stream, int type, zoflv_host::DataSource& source,
                           zoflv_inspect::ByteSource& file)
{
    using namespace zoflv_inspect;
    constexpr int most_frames = 5000; // more are no different
    const Kind kind = type == ZOFLV_TAG_VIDEO ? Kind::VIDEO : Kind::AUDIO;
    HostSource reads(source);
    TagTrail trail(reads, kind);
    source.watch(&trail);
    std::unique_ptr<ZOFLVDS, void (*)(ZOFLVDS*)> s(zoflvds_open(h, stream, nullptr), zoflvds_close);
    std::vector<uint8_t> buffer(1 << 18);
    FramePlaces whole(file, kind);
    std::optional<FramePlaces> rest; // the walk where the trail is lost
    int rc = s ? ZOFLV_OK : ZOFLV_ERR_FAIL;
    for (int i = 0; i < most_frames && rc == ZOFLV_OK; ++i) {
        int length = 0;
        int64_t time = 0, next_time = 0;
        rc = zoflvds_get_frm(s.get(), buffer.data(), static_cast<int>(buffer.size()), &length,
                             &time, &next_time);
        if (rc != ZOFLV_OK)
            break;
        const auto size = static_cast<uint64_t>(length);
        std::optional<FramePlace> place;
        if (!rest)
            place = trail.deliver(time / 10, size);
        if (!place && !rest)
            rest.emplace(file, kind, trail.proven());
        if (rest)
            place = rest->find(time / 10, size);
        WALK_CHECK(same_place(place, whole.find(time / 10, size)));
    }
    source.watch(nullptr);
    if (rc == ZOFLV_OK)
        return false;
    const bool complete = !rest && rc == ZOFLV_EOF && trail.complete(reads.size());
    if (!complete && !rest)
        rest.emplace(file, kind, trail.proven());
    WALK_CHECK(whole.first_missing() == (rest ? rest->first_missing() : std::nullopt));
    return complete;
}

/// All streams of a file; the number of those whose trail led to the end.
inline int check_trails(const uint8_t* data, size_t size)
{
    zoflv_host::MemoryDataSource source({data, data + size});
    zoflv_inspect::MemorySource file(data, size);
    android::DataSourceHelper helper(source.record());
    _ZOCMN_MFAL mfal;
    if (zocmn_mfal_init(&mfal, &helper) != ZOFLV_OK)
        return 0;
    const int64_t unknown = 0;
    ZOFLVD_INFO info;
    int complete = 0;
    ZOFLVD* const h = zoflvd_create(&mfal, &unknown, &info, nullptr);
    for (int i = 0; h && i < info.strm_cnt; ++i)
        complete += check_trail_of(h, i, info.strm_type[i], source, file);
    zoflvd_delete(h);
    zocmn_mfal_deinit(&mfal);
    return complete;
}
