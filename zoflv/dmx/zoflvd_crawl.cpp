// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_crawl.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"
#include "zoflv/dmx/zoflv_num.h"

namespace {

// Results of `next` and `check`.
enum : int32_t {
    stepped = 0,
    end_reached = 1,
    go_on = 0,
    no_answer = 1,
    answer = 2,
};

int fail(int check)
{
    zoflv_log_assert("zoflvd_crawl", "zoflv/dmx/zoflvd_crawl", check);
    return ZOFLV_ERR_FAIL;
}

bool is_match(const ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG& tag)
{
    return tag.type == crawl->strm_type;
}

// ---- Remember callbacks

int32_t zoflvd_crawl_save_any(ZOFLVD_CRAWL* crawl)
{
    crawl->saved = crawl->cur;
    crawl->has_saved = 1;
    return ZOFLV_OK;
}

int32_t zoflvd_crawl_save_aud(ZOFLVD_CRAWL* crawl)
{
    return is_match(crawl, crawl->cur) ? zoflvd_crawl_save_any(crawl) : ZOFLV_OK;
}

int32_t zoflvd_crawl_save_vid(ZOFLVD_CRAWL* crawl)
{
    return crawl->cur.kf ? zoflvd_crawl_save_aud(crawl) : ZOFLV_OK;
}

// ---- Step callbacks

int32_t stop_at_end(ZOFLVD_CRAWL* crawl)
{
    crawl->at_end = 1;
    return end_reached;
}

int64_t tag_after(const ZOFLVD_TAG& tag)
{
    return zoflv_add_sat(tag.pos, int64_t{tag.data_size} + ZOFLV_TAG_OVERHEAD);
}

// Lets the current tag be remembered, which every step does first.
bool leave(ZOFLVD_CRAWL* crawl)
{
    if (crawl->save(crawl) == ZOFLV_OK)
        return true;
    fail(3001);
    return false;
}

bool read_header_at(ZOFLVD_CRAWL* crawl, int64_t pos)
{
    if (zoflv_file_setpos(crawl->mfal, crawl->fh, pos) == 0 &&
        zoflvd_tag_read(crawl->mfal, crawl->fh, &crawl->cur) == ZOFLV_OK)
        return true;
    fail(3002);
    return false;
}

// Makes the tag at `pos` the current one, its keyframe flag included.
int32_t step_to(ZOFLVD_CRAWL* crawl, int64_t pos)
{
    if (!read_header_at(crawl, pos))
        return ZOFLV_ERR_FAIL;
    crawl->cur.kf = 1;
    if (crawl->strm_type != ZOFLV_TAG_VIDEO)
        return stepped;
    uint8_t first = 0; // FrameType and CodecID
    if (!zoflv_file_read(crawl->mfal, crawl->fh, &first, 1))
        return fail(3003);
    crawl->cur.kf = first >> 4 == 1;
    return stepped;
}

int32_t zoflvd_crawl_next_forw(ZOFLVD_CRAWL* crawl)
{
    if (!leave(crawl))
        return ZOFLV_ERR_FAIL;
    const int64_t pos = tag_after(crawl->cur);
    return pos >= crawl->pos_max ? stop_at_end(crawl) : step_to(crawl, pos);
}

int32_t zoflvd_crawl_next_backw(ZOFLVD_CRAWL* crawl)
{
    if (!leave(crawl))
        return ZOFLV_ERR_FAIL;
    const int64_t field = zoflv_sub_sat(crawl->cur.pos, ZOFLV_PREV_TAG_SIZE);
    if (field < crawl->pos_min)
        return stop_at_end(crawl);
    uint8_t raw[ZOFLV_PREV_TAG_SIZE];
    if (zoflv_file_setpos(crawl->mfal, crawl->fh, field) != 0 ||
        !zoflv_file_read(crawl->mfal, crawl->fh, raw, sizeof raw))
        return ZOFLV_ERR_FAIL;
    crawl->prev_tag_size = zoflv_be32(raw);
    const int64_t pos = zoflv_sub_sat(field, crawl->prev_tag_size);
    if (crawl->prev_tag_size == 0 || pos < crawl->pos_min)
        return stop_at_end(crawl); // the chain of tags begins here
    return step_to(crawl, pos);
}

int32_t zoflvd_crawl_next_forw_any(ZOFLVD_CRAWL* crawl)
{
    if (!leave(crawl))
        return ZOFLV_ERR_FAIL;
    crawl->cur.found = 0;
    const int64_t pos = tag_after(crawl->cur);
    if (pos >= crawl->pos_max)
        return stop_at_end(crawl);
    if (!read_header_at(crawl, pos))
        return ZOFLV_ERR_FAIL;
    crawl->cur.found = 1;
    return stepped;
}

// ---- Tests

int32_t answer_if(bool found)
{
    return found ? answer : go_on;
}

bool saved_keyframe(const ZOFLVD_CRAWL* crawl)
{
    return crawl->has_saved && crawl->saved.kf;
}

int32_t zoflvd_crawl_check_aud_forw(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return no_answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp >= crawl->target);
}

int32_t zoflvd_crawl_check_aud_backw(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return answer; // the earliest tag reached
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp <= crawl->target);
}

int32_t zoflvd_crawl_check_vid_forw_kf(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return no_answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp >= crawl->target &&
                     crawl->cur.kf);
}

int32_t zoflvd_crawl_check_vid_forw(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return no_answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp >= crawl->target &&
                     saved_keyframe(crawl));
}

int32_t zoflvd_crawl_check_vid_backw_next(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp <= crawl->target &&
                     saved_keyframe(crawl));
}

int32_t zoflvd_crawl_check_vid_backw(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.timestamp <= crawl->target &&
                     crawl->cur.kf);
}

int32_t zoflvd_crawl_check_keyfrm(ZOFLVD_CRAWL* crawl)
{
    if (crawl->at_end)
        return no_answer;
    return answer_if(is_match(crawl, crawl->cur) && crawl->cur.kf);
}

int32_t zoflvd_crawl_check_any_forw(ZOFLVD_CRAWL* crawl)
{
    return crawl->at_end ? answer : go_on;
}

// ---- Position callbacks

bool has_answer(ZOFLVD_CRAWL* crawl)
{
    if (crawl->check(crawl) == answer)
        return true;
    fail(3004);
    return false;
}

int32_t position_at(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG& tag)
{
    if (zoflv_file_setpos(crawl->mfal, crawl->fh, tag.pos) != 0)
        return fail(3005);
    crawl->result = tag.timestamp;
    return ZOFLV_OK;
}

int32_t zoflvd_crawl_setpos_tag(ZOFLVD_CRAWL* crawl)
{
    if (!has_answer(crawl))
        return ZOFLV_ERR_FAIL;
    return position_at(crawl, crawl->cur);
}

int32_t zoflvd_crawl_setpos_prevtag(ZOFLVD_CRAWL* crawl)
{
    if (!has_answer(crawl))
        return ZOFLV_ERR_FAIL;
    return position_at(crawl, crawl->saved);
}

int32_t zoflvd_crawl_setpos_tag_any(ZOFLVD_CRAWL* crawl)
{
    if (crawl->cur.found)
        return position_at(crawl, crawl->cur);
    if (crawl->saved.found)
        return position_at(crawl, crawl->saved);
    return ZOFLV_ERR_FAIL;
}

// ---- Set-up

struct Rule {
    ZOFLVD_CRAWL_FN next;
    ZOFLVD_CRAWL_FN check;
    ZOFLVD_CRAWL_FN setpos;
    ZOFLVD_CRAWL_FN save;
};

constexpr Rule vid_next_forw = {zoflvd_crawl_next_forw, zoflvd_crawl_check_vid_forw_kf,
                                zoflvd_crawl_setpos_tag, zoflvd_crawl_save_vid};
constexpr Rule vid_next_backw = {zoflvd_crawl_next_backw, zoflvd_crawl_check_vid_backw_next,
                                 zoflvd_crawl_setpos_prevtag, zoflvd_crawl_save_vid};
constexpr Rule vid_prev_forw = {zoflvd_crawl_next_forw, zoflvd_crawl_check_vid_forw,
                                zoflvd_crawl_setpos_prevtag, zoflvd_crawl_save_vid};
constexpr Rule vid_prev_backw = {zoflvd_crawl_next_backw, zoflvd_crawl_check_vid_backw,
                                 zoflvd_crawl_setpos_tag, zoflvd_crawl_save_vid};
constexpr Rule aud_forw = {zoflvd_crawl_next_forw, zoflvd_crawl_check_aud_forw,
                           zoflvd_crawl_setpos_prevtag, zoflvd_crawl_save_aud};
constexpr Rule aud_backw = {zoflvd_crawl_next_backw, zoflvd_crawl_check_aud_backw,
                            zoflvd_crawl_setpos_tag, zoflvd_crawl_save_aud};
constexpr Rule keyfrm_forw = {zoflvd_crawl_next_forw, zoflvd_crawl_check_keyfrm,
                              zoflvd_crawl_setpos_tag, zoflvd_crawl_save_vid};
constexpr Rule keyfrm_backw = {zoflvd_crawl_next_backw, zoflvd_crawl_check_keyfrm,
                               zoflvd_crawl_setpos_tag, zoflvd_crawl_save_vid};
constexpr Rule any_forw = {zoflvd_crawl_next_forw_any, zoflvd_crawl_check_any_forw,
                           zoflvd_crawl_setpos_tag_any, zoflvd_crawl_save_any};

void apply(ZOFLVD_CRAWL* crawl, const Rule& rule)
{
    crawl->next = rule.next;
    crawl->check = rule.check;
    crawl->setpos = rule.setpos;
    crawl->save = rule.save;
}

// What every search within a stream starts from.
void init_stream(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const ZOFLVD_CRAWL_RANGE* range)
{
    const ZOFLVD_TAG from = *start; // may be in the record itself
    *crawl = ZOFLVD_CRAWL{};
    crawl->mfal = range->mfal;
    crawl->fh = range->fh;
    crawl->strm_type = range->strm_type;
    crawl->pos_min = range->pos_min;
    crawl->pos_max = range->pos_max;
    crawl->cur = from;
}

// A search by time, with one rule for video and one for audio.
int init_time(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const int64_t* target,
              const ZOFLVD_CRAWL_RANGE* range, const Rule& video, const Rule& audio)
{
    const int64_t time = *target; // may be in the record itself, as the start tag
    init_stream(crawl, start, range);
    if (crawl->strm_type != ZOFLV_TAG_VIDEO && crawl->strm_type != ZOFLV_TAG_AUDIO)
        return fail(3006);
    crawl->saved = crawl->cur;
    crawl->target = time;
    apply(crawl, crawl->strm_type == ZOFLV_TAG_VIDEO ? video : audio);
    return ZOFLV_OK;
}

} // namespace

int zoflvd_crawl_init_seek(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const int64_t* target,
                           const ZOFLVD_CRAWL_RANGE* range, int mode)
{
    if (start->timestamp < *target)
        return init_time(crawl, start, target, range,
                         mode == ZOFLV_SEEK_NEXT ? vid_next_forw : vid_prev_forw, aud_forw);
    return init_time(crawl, start, target, range,
                     mode == ZOFLV_SEEK_NEXT ? vid_next_backw : vid_prev_backw, aud_backw);
}

int zoflvd_crawl_init_reverse(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start, const int64_t* target,
                              const ZOFLVD_CRAWL_RANGE* range)
{
    return init_time(crawl, start, target, range, vid_prev_backw, aud_backw);
}

int zoflvd_crawl_init_reverse_forw(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start,
                                   const int64_t* target, const ZOFLVD_CRAWL_RANGE* range)
{
    return init_time(crawl, start, target, range, vid_next_forw, aud_forw);
}

int zoflvd_crawl_init_keyfrm(ZOFLVD_CRAWL* crawl, const ZOFLVD_TAG* start,
                             const ZOFLVD_CRAWL_RANGE* range, int direction)
{
    init_stream(crawl, start, range);
    apply(crawl, direction == 1 ? keyfrm_forw : keyfrm_backw);
    return ZOFLV_OK;
}

int zoflvd_crawl_init_find_duration(ZOFLVD_CRAWL* crawl, const _ZOCMN_MFAL* mfal, void* fh,
                                    const ZOFLVD_TAG* start, const int64_t* pos_min,
                                    const int64_t* pos_max)
{
    const ZOFLVD_TAG from = *start;
    const int64_t min = *pos_min;
    const int64_t max = *pos_max;
    *crawl = ZOFLVD_CRAWL{};
    crawl->mfal = mfal;
    crawl->fh = fh;
    crawl->strm_type = from.type;
    crawl->cur = from;
    crawl->pos_min = min;
    crawl->pos_max = max;
    apply(crawl, any_forw);
    return ZOFLV_OK;
}
