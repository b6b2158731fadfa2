// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_tag.h"

#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_log.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"

namespace {

// zoflvd_tag_read() with arguments that were tested.
[[gnu::always_inline]] inline int read_tag(const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_TAG* tag)
{
    *tag = ZOFLVD_TAG{};
    int64_t pos = 0;
    if (zoflv_file_getpos(mfal, fh, &pos) != 0)
        return zoflvd_log_error("ZOFLV_ERR_FILEIO.", ZOFLV_ERR_FILEIO);
    uint8_t header[ZOFLV_TAG_HEADER];
    ZOFLVD_RDBUF rb;
    const int rc = zoflvd_rdbuf_init(&rb, header, sizeof header, mfal, fh, 1);
    if (rc != ZOFLV_OK)
        return rc;
    uint32_t time_low = 0;
    uint8_t time_high = 0;
    if (zoflvd_rdbuf_byte(&rb, &tag->type) != ZOFLV_OK) // TagType
        return zoflvd_fail(291, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &tag->data_size) != ZOFLV_OK) // DataSize
        return zoflvd_fail(297, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &time_low) != ZOFLV_OK) // Timestamp
        return zoflvd_fail(303, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_byte(&rb, &time_high) != ZOFLV_OK) // TimestampExtended
        return zoflvd_fail(309, ZOFLV_ERR_FORMAT);
    if (zoflvd_rdbuf_int24(&rb, &tag->strm_id) != ZOFLV_OK) // StreamID
        return zoflvd_fail(320, ZOFLV_ERR_FORMAT);
    const uint32_t time_ms = uint32_t{time_high} << 24 | time_low; // unsigned: up to 49 days
    tag->timestamp = int64_t{time_ms} * ZOFLV_TICKS_PER_MS;
    tag->pos = pos;
    return ZOFLV_OK;
}

} // namespace

int zoflvd_tag_read(const _ZOCMN_MFAL* mfal, void* fh, ZOFLVD_TAG* tag)
{
    if (!mfal || !fh || !tag)
        return zoflvd_log_error("ERR: invalid argument, exit.");
    return read_tag(mfal, fh, tag);
}

int zoflvd_tag_next(const _ZOCMN_MFAL* mfal, void* fh, const int64_t* start, int type, int max_tags,
                    const int64_t* end, ZOFLVD_TAG* tag)
{
    if (!mfal || !fh || !start || !end || !tag)
        return ZOFLV_ERR_FAIL;
    if (*end <= 0)
        return zoflvd_fail(2578);
    tag->found = 0;
    tag->type = 0;
    int64_t pos = *start;
    bool examined = false;
    for (int count = 0; pos < *end;) {
        if (zoflv_file_setpos(mfal, fh, pos) != 0)
            return zoflvd_fail(2595);
        const int rc = read_tag(mfal, fh, tag);
        if (rc != ZOFLV_OK) {
            // No later read from this file is to find data.
            return zoflv_file_setpos(mfal, fh, *end) == 0 ? rc : zoflvd_fail(2602);
        }
        if (tag->type == type) {
            tag->found = 1;
            tag->pos = pos;
            return ZOFLV_OK;
        }
        examined = true;
        if (max_tags >= 1 && ++count >= max_tags) {
            __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG,
                                "tag of stream type %d not found", type);
            return ZOFLV_ERR_FAIL;
        }
        if (!zoflv_pos_add(pos, int64_t{tag->data_size} + ZOFLV_TAG_OVERHEAD, &pos))
            break;
    }
    if (examined)
        zoflv_file_setpos(mfal, fh, *end); // not on the data of a tag that was skipped
    return ZOFLV_ERR_FAIL;
}
