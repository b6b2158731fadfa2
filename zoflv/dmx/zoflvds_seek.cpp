// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvds_priv.h"

#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_crawl.h"
#include "zoflv/dmx/zoflvd_kf.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_scan.h"

namespace {

// ---- Without an index

// target x data_len / duration, of a target within the duration. Times are divided by 1 ms first
// where they allow it; where the product still does not fit, both are halved: it is an estimate.
int64_t estimate_offset(int64_t target, int64_t duration, int64_t data_len)
{
    if (target <= 0)
        return 0;
    if (duration >= ZOFLV_TICKS_PER_MS) {
        target /= ZOFLV_TICKS_PER_MS;
        duration /= ZOFLV_TICKS_PER_MS;
    }
    int64_t product = 0;
    while (__builtin_mul_overflow(target, data_len, &product)) {
        target /= 2;
        duration /= 2;
    }
    return product / (duration > 0 ? duration : 1);
}

// Finds a tag that lies before the target in time, going back from an estimate of its offset.
int find_start_tag(ZOFLVDS* s, int64_t target, uint8_t* buf, ZOFLVD_TAG* tag)
{
    constexpr int64_t back_off = 32768;
    constexpr double farthest = 0.9; // share of the file

    const ZOFLVD_SH& sh = s->sh;
    const int64_t far = zoflv_from_double<int64_t>(static_cast<double>(sh.file_size) * farthest);
    int64_t est = zoflv_add_sat(sh.data_start, estimate_offset(target, sh.duration, sh.data_len));
    int64_t scan_end = sh.file_size;
    for (;;) {
        const int64_t before = est;
        est = zoflv_sub_sat(est, back_off);
        if (est >= sh.file_size)
            est = far;
        else if (est < sh.data_start)
            est = sh.data_start;
        if (est > before) // moved up by the clamp: the last round looks at everything
            scan_end = sh.file_size;
        if (zoflv_file_setpos(&s->mfal, s->fh, est) != 0)
            return zoflvd_fail(3201);
        // From `scan_end` on the round before has searched: if there is nothing new, its
        // tag stays.
        const int rc = zoflvd_scan_bytes(&s->mfal, s->fh, buf, est, scan_end, sh.file_size, tag);
        if (rc == ZOFLV_ERR_FAIL || (rc == ZOFLV_EOF && scan_end == sh.file_size))
            return zoflvd_fail(3202);
        if (tag->pos <= sh.data_start || tag->timestamp < target || est == sh.data_start)
            return ZOFLV_OK;
        scan_end = zoflv_add_sat(est, ZOFLV_TAG_HEADER - 1);
    }
}

// The crawl has overshot without an answer: it is to search the other way.
bool has_overshot(const ZOFLVD_CRAWL& crawl, int64_t target, int mode)
{
    constexpr int64_t tolerance = 1000000; // 0.1 s

    const int64_t time = crawl.cur.timestamp;
    if (mode == ZOFLV_SEEK_PREVIOUS)
        return time > crawl.saved.timestamp && time - tolerance > target;
    return time < crawl.saved.timestamp && time - tolerance < target;
}

ZOFLVD_CRAWL_RANGE crawl_range(const ZOFLVDS* s)
{
    const int64_t end = zoflv_add_sat(s->sh.data_start, s->sh.data_len);
    return {&s->mfal, s->fh, s->sh.strm_type, s->sh.data_start, end};
}

int step(ZOFLVD_CRAWL* crawl)
{
    return crawl->next(crawl) < 0 ? zoflvd_fail(3203) : ZOFLV_OK;
}

// Leaves the file at the tag that the crawler has found, and tells its time.
int land(ZOFLVD_CRAWL* crawl, int64_t* out_time)
{
    if (crawl->setpos(crawl) != ZOFLV_OK)
        return zoflvd_fail(3204);
    if (out_time)
        *out_time = crawl->result;
    return ZOFLV_OK;
}

// Crawls to the tag asked for. 0, or -1 when there is none, which is not logged.
int crawl_to_time(ZOFLVDS* s, const ZOFLVD_TAG& start, int64_t target, int mode,
                  ZOFLVD_CRAWL* crawl)
{
    constexpr int max_passed = 30720; // tags of the stream, per direction

    const ZOFLVD_CRAWL_RANGE range = crawl_range(s);
    if (zoflvd_crawl_init_seek(crawl, &start, &target, &range, mode) != ZOFLV_OK)
        return zoflvd_fail(3205);
    bool turned = false;
    int passed = 0;
    int found = crawl->check(crawl);
    while (found == 0) {
        if (step(crawl) != ZOFLV_OK)
            return ZOFLV_ERR_FAIL;
        if (crawl->cur.type == s->sh.strm_type && ++passed > max_passed)
            return ZOFLV_ERR_FAIL;
        if (!turned && has_overshot(*crawl, target, mode)) {
            const int rc = mode == ZOFLV_SEEK_PREVIOUS
                               ? zoflvd_crawl_init_reverse(crawl, &start, &target, &range)
                               : zoflvd_crawl_init_reverse_forw(crawl, &start, &target, &range);
            if (rc != ZOFLV_OK)
                return zoflvd_fail(3206);
            turned = true;
            passed = 0;
        }
        found = crawl->check(crawl);
    }
    return found == 2 ? ZOFLV_OK : ZOFLV_ERR_FAIL;
}

// The keyframe next to the current tag. 0, or 1.
int seek_from_current(ZOFLVDS* s, int64_t* out_time, int mode)
{
    const ZOFLVD_TAG& cur = s->cur_tag;
    // No tag was read yet, or the stream has ended: a forward step would take a frame for a header.
    if (cur.pos == 0 || (mode == ZOFLV_SEEK_NEXT && cur.type != s->sh.strm_type))
        return ZOFLV_EOF;
    const ZOFLVD_CRAWL_RANGE range = crawl_range(s);
    ZOFLVD_CRAWL crawl;
    if (zoflvd_crawl_init_keyfrm(&crawl, &cur, &range, mode == ZOFLV_SEEK_NEXT ? 1 : 0) != ZOFLV_OK)
        return zoflvd_fail(3207, ZOFLV_EOF);
    int found = 0;
    while (found == 0) {
        if (step(&crawl) != ZOFLV_OK)
            return ZOFLV_EOF;
        found = crawl.check(&crawl);
    }
    return found == 2 && land(&crawl, out_time) == ZOFLV_OK ? ZOFLV_OK : ZOFLV_EOF;
}

// The nearer of the keyframes before and after the time: two searches.
int seek_closest(ZOFLVDS* s, int64_t time, int64_t* out_time)
{
    int64_t prev_time = 0;
    int64_t prev_pos = 0;
    const bool has_prev =
        zoflvds_seek_bytestream(s, &time, &prev_time, ZOFLV_SEEK_PREVIOUS) == ZOFLV_OK;
    if (has_prev && zoflv_file_getpos(&s->mfal, s->fh, &prev_pos) != 0)
        return zoflvd_fail(3208, ZOFLV_ERR_FILEIO);
    int64_t next_time = 0;
    const bool has_next =
        zoflvds_seek_bytestream(s, &time, &next_time, ZOFLV_SEEK_NEXT) == ZOFLV_OK;
    if (!has_prev && !has_next)
        return ZOFLV_ERR_FORMAT;
    const bool take_next =
        has_next && (!has_prev || zoflv_sub_sat(next_time, time) < zoflv_sub_sat(time, prev_time));
    if (!take_next && zoflv_file_setpos(&s->mfal, s->fh, prev_pos) != 0)
        return zoflvd_fail(3209, ZOFLV_ERR_FILEIO);
    if (out_time)
        *out_time = take_next ? next_time : prev_time;
    return ZOFLV_OK;
}

int seek_without_index(ZOFLVDS* s, int64_t time, int64_t* out_time, int mode)
{
    if (mode == ZOFLV_SEEK_CLOSEST)
        return seek_closest(s, time, out_time);
    return zoflvds_seek_bytestream(s, &time, out_time, mode) == ZOFLV_OK ? ZOFLV_OK
                                                                         : ZOFLV_ERR_FORMAT;
}

// ---- With an index

// A seek through the index once the entry is chosen.
struct IndexSeek {
    int64_t time;    // asked for
    ZOFLVD_KF entry; // chosen
    bool later;      // the entry is the one after the time
};

int keytag_error()
{
    return zoflvd_log_error("zoflvds_validate_keytag() failed", ZOFLV_ERR_FORMAT);
}

int keytag_fail(int check)
{
    zoflvd_fail(check);
    return keytag_error();
}

int keytag_setpos(ZOFLVDS* s, int64_t pos)
{
    return zoflv_file_setpos(&s->mfal, s->fh, pos) == 0 ? ZOFLV_OK : keytag_fail(3301);
}

int position_at_keytag(ZOFLVDS* s, int64_t pos, int64_t time, int64_t* out_time)
{
    const int rc = keytag_setpos(s, pos);
    if (rc != ZOFLV_OK)
        return rc;
    if (out_time)
        *out_time = time;
    return ZOFLV_OK;
}

// Tells whether the found tag is the keyframe of the entry: 0 yes, 1 no, other: a code to return.
int match_keytag(ZOFLVDS* s, const IndexSeek& seek, const ZOFLVD_TAG& found)
{
    constexpr int64_t tolerance = 10000; // 1 ms

    const int64_t off = zoflv_sub_sat(seek.entry.time, found.timestamp);
    if (off < -tolerance || off > tolerance || found.type != s->sh.strm_type)
        return ZOFLV_EOF;
    const int rc = keytag_setpos(s, found.pos);
    if (rc != ZOFLV_OK)
        return rc;
    if (found.type != ZOFLV_TAG_VIDEO)
        return ZOFLV_OK;
    uint8_t head[16];
    if (!zoflv_file_read(&s->mfal, s->fh, head, sizeof head))
        return keytag_fail(3302);
    return head[ZOFLV_TAG_HEADER] >> 4 == 1 ? ZOFLV_OK : ZOFLV_EOF; // FrameType
}

// The entry's offset holds no tag: looks for its keyframe nearby, then without the index.
int search_near(ZOFLVDS* s, const IndexSeek& seek, int64_t* out_time)
{
    constexpr int rounds = 10;
    constexpr int64_t round_step = 100;

    uint8_t window[ZOFLVD_SCAN_WINDOW];
    int64_t start = zoflv_sub_sat(seek.entry.pos, ZOFLVD_SCAN_WINDOW);
    if (start < 0)
        start = 0;
    ZOFLVD_TAG found = {};
    for (int round = 0; round < rounds; ++round, start = zoflv_add_sat(start, round_step)) {
        // The first tag from an earlier start is the first from this one, unless it lies before it:
        // the file is then left where the search would leave it, after the tag.
        const bool known = round > 0 && found.pos >= start;
        const int64_t pos = known ? found.pos + found.data_size + ZOFLV_TAG_OVERHEAD : start;
        const int positioned = keytag_setpos(s, pos);
        if (positioned != ZOFLV_OK)
            return positioned;
        if (!known && zoflvds_seek_bytestream_tag(&s->mfal, s->fh, window, start, s->sh.file_size,
                                                  &found) != ZOFLV_OK)
            return keytag_fail(3303);
        if (seek.later && found.timestamp < seek.time)
            continue;
        if (!seek.later && found.timestamp > seek.time)
            break;
        const int rc = match_keytag(s, seek, found);
        if (rc == ZOFLV_OK)
            return position_at_keytag(s, found.pos, found.timestamp, out_time);
        if (rc != ZOFLV_EOF)
            return rc;
    }
    if (zoflvds_seek_bytestream(s, &seek.time, out_time, ZOFLV_SEEK_PREVIOUS) != ZOFLV_OK)
        return keytag_error();
    return ZOFLV_OK;
}

// Confirms that a tag is at the entry's offset, where the file is to be left.
int seek_to_entry(ZOFLVDS* s, const IndexSeek& seek, int64_t* out_time)
{
    if (zoflv_file_setpos(&s->mfal, s->fh, seek.entry.pos) != 0)
        return zoflvd_log_error("fsetpos() failed", ZOFLV_ERR_FORMAT);
    uint8_t head[16] = {};
    const int count = s->mfal.read(s->fh, head, sizeof head);
    if (count <= 0)
        return keytag_fail(3304);
    const bool audio_or_video = (head[0] & 0xFE) == ZOFLV_TAG_AUDIO;
    const bool stream_id = head[8] == 0 && head[9] == 0 && head[10] == 0;
    if (count >= ZOFLV_TAG_HEADER && audio_or_video && stream_id)
        return position_at_keytag(s, seek.entry.pos, seek.entry.time, out_time);
    return search_near(s, seek, out_time);
}

int seek_with_index(ZOFLVDS* s, int64_t time, int64_t* out_time, int mode)
{
    IndexSeek seek = {time, {}, false};
    const int rc = zoflvd_kf_choose(&s->idx, time, mode, &seek.entry, &seek.later);
    return rc == ZOFLV_OK ? seek_to_entry(s, seek, out_time) : rc;
}

} // namespace

int zoflvds_seek(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode)
{
    if (!zoflvds_is_valid(s))
        return ZOFLV_ERR_FAIL;
    if (mode < ZOFLV_SEEK_PREVIOUS || mode > ZOFLV_SEEK_CLOSEST)
        return zoflvd_fail(3305);
    // Whatever comes of it, the next read begins with the tag at the file's position.
    s->cur_tag.found = 0;
    s->next_tag.found = 0;
    s->fetch_tag = 1;
    if (!time) {
        if (mode != ZOFLV_SEEK_NEXT && mode != ZOFLV_SEEK_BACK)
            return zoflvd_log_error("zoflvds_seek(): invalid mode arg");
        return seek_from_current(s, out_time, mode);
    }
    if (*time == 0) {
        if (zoflv_file_setpos(&s->mfal, s->fh, s->sh.first_tag_pos) != 0)
            return zoflvd_fail(3306, ZOFLV_ERR_FILEIO);
        if (out_time)
            *out_time = 0;
        return ZOFLV_OK;
    }
    if (zoflvd_mblk_elem_cnt(&s->idx) == 0)
        return seek_without_index(s, *time, out_time, mode);
    return seek_with_index(s, *time, out_time, mode);
}

int zoflvds_seek_bytestream(ZOFLVDS* s, const int64_t* time, int64_t* out_time, int mode)
{
    const int64_t target = *time;
    if (s->sh.duration < target)
        return zoflvd_fail(3210);
    int64_t pos = 0;
    if (zoflv_file_getpos(&s->mfal, s->fh, &pos) != 0)
        return zoflvd_fail(3211);
    const zoflv_block buf = zoflv_alloc(ZOFLVD_SCAN_WINDOW);
    if (!buf) {
        __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG, "malloc failed!, [%s: %d]",
                            ZOFLVD_SOURCE, 3212);
        return ZOFLV_ERR_FAIL;
    }
    if (s->sh.duration <= 0)
        return zoflvd_fail(3213);
    ZOFLVD_TAG start = {};
    if (find_start_tag(s, target, buf.get(), &start) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    if (zoflv_file_setpos(&s->mfal, s->fh, start.pos) != 0)
        return zoflvd_fail(3214);
    ZOFLVD_CRAWL crawl;
    if (crawl_to_time(s, start, target, mode, &crawl) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    return land(&crawl, out_time);
}
