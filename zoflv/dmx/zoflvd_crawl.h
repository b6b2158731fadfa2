// SPDX-License-Identifier: Apache-2.0
/// @file
/// The tag crawler: goes through a file tag by tag, forward by the tags' sizes or backward by the
/// PreviousTagSize fields, to the tag that a search rule asks for.
///
/// Set a record up with one of the init functions, then call `next` and `check` in turn until
/// `check` gives another result than 0; after a 2 call `setpos`.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstdint>

struct ZOFLVD_CRAWL;

using ZOFLVD_CRAWL_FN = int32_t (*)(ZOFLVD_CRAWL* crawl);

/// The state of one search. Keyframe flag of a tag: a video tag whose FrameType is 1; every tag
/// visited for another type of stream.
struct ZOFLVD_CRAWL {
    const _ZOCMN_MFAL* mfal; ///< borrowed
    void* fh;                ///< borrowed; its position is wherever the crawler last read
    int32_t strm_type;       ///< FLV tag type searched for
    ZOFLVD_TAG cur;          ///< the tag the crawler is at
    uint32_t prev_tag_size;  ///< the last PreviousTagSize read
    int32_t at_end;          ///< 1: a step would leave the data, or the chain of tags breaks
    int32_t has_saved;       ///< 1: `save` has remembered a tag
    ZOFLVD_TAG saved;        ///< the remembered tag, a candidate
    ZOFLVD_CRAWL_FN next;    ///< one tag on: 0, 1 end reached, -1 failure
    ZOFLVD_CRAWL_FN check;   ///< 0 go on, 1 stop without an answer, 2 stop with one
    ZOFLVD_CRAWL_FN setpos;  ///< positions the file at the answer, fills `result`: 0 or -1
    ZOFLVD_CRAWL_FN save;    ///< called by `next` on the tag being left: 0 or -1
    int64_t pos_min;         ///< no tag before this offset is visited
    int64_t pos_max;         ///< no tag at or after this offset is visited
    int64_t target;          ///< the time searched for, 100-ns units
    int64_t result;          ///< the time of the tag positioned on, 100-ns units
};

/// Where a search goes from tag to tag: a stream's share of its file.
struct ZOFLVD_CRAWL_RANGE {
    const _ZOCMN_MFAL* mfal; ///< borrowed, as `fh`, until the search is over
    void* fh;
    int32_t strm_type; ///< FLV tag type searched for
    int64_t pos_min;   ///< no tag before this offset is visited
    int64_t pos_max;   ///< no tag at or after this offset is visited
};

/// Searches from `start` to a time: forward when the tag's time is below it, else backward.
/// @param mode  ZOFLV_SEEK_NEXT: video's first keyframe at or after the time; others: the last one
///              at or before it
/// @return 0, or -1 when the stream is neither audio nor video
int zoflvd_crawl_init_seek(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const int64_t* target,
                           const ZOFLVD_CRAWL_RANGE* range, int mode);

/// Searches back from `start` for a keyframe at or before a time. 0 or -1 as above.
int zoflvd_crawl_init_reverse(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const int64_t* target,
                              const ZOFLVD_CRAWL_RANGE* range);

/// Searches forward from `start` for a keyframe at or after a time (audio: the last tag before
/// it). 0 or -1 as above.
int zoflvd_crawl_init_reverse_forw(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start,
                                   const int64_t* target, const ZOFLVD_CRAWL_RANGE* range);

/// Searches the stream's next keyframe after `start` (direction 1) or the one before it (others).
/// Always 0.
int zoflvd_crawl_init_keyfrm(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start,
                             const ZOFLVD_CRAWL_RANGE* range, int direction);

/// Searches the last tag before `*pos_max`, of whatever type, and its time. Always 0. Completes the
/// module: the demuxer takes the duration from the metadata alone, and only tests call this.
int zoflvd_crawl_init_find_duration(ZOFLVD_CRAWL* crawl, const _ZOCMN_MFAL* mfal, void* fh,
                                    const ZOFLVD_TAG* start, const int64_t* pos_min,
                                    const int64_t* pos_max);
