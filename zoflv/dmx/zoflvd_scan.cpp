// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_scan.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_log.h"

#include <cstring>

namespace {

// A sliding window over the file. Offsets below `scan_end` are looked at; a tag must end before
// `limit`.
struct ByteScan {
    const _ZOCMN_MFAL* mfal;
    void* fh;
    uint8_t* window; // ZOFLVD_SCAN_WINDOW bytes, the caller's
    int64_t scan_end;
    int64_t limit;
    int64_t start;   // file offset of the window's first byte
    int length;      // bytes in the window
    int64_t checked; // offsets looked at in earlier windows
};

bool looks_like_header(const uint8_t* p)
{
    const bool type =
        p[0] == ZOFLV_TAG_AUDIO || p[0] == ZOFLV_TAG_VIDEO || p[0] == ZOFLV_TAG_SCRIPT;
    return type && p[8] == 0 && p[9] == 0 && p[10] == 0; // StreamID
}

// Reads the four bytes at `pos`, from the window where it holds them; the file stays where it is.
bool read_prev_tag_size(const ByteScan& scan, int64_t pos, uint32_t* value)
{
    uint8_t raw[ZOFLV_PREV_TAG_SIZE];
    if (pos - scan.start <= scan.length - ZOFLV_PREV_TAG_SIZE) {
        std::memcpy(raw, scan.window + (pos - scan.start), sizeof raw);
    } else {
        int64_t back = 0;
        if (zoflv_file_getpos(scan.mfal, scan.fh, &back) != 0 ||
            zoflv_file_setpos(scan.mfal, scan.fh, pos) != 0 ||
            !zoflv_file_read(scan.mfal, scan.fh, raw, sizeof raw) ||
            zoflv_file_setpos(scan.mfal, scan.fh, back) != 0)
            return false;
    }
    *value = zoflv_be32(raw);
    return true;
}

// Tests the bytes at offset `at` of the window as a tag. 0: it is one, the file is after its
// PreviousTagSize; 1: it is none; -1: failure.
int check_candidate(const ByteScan& scan, int at, ZOFLVD_TAG* tag)
{
    const uint8_t* p = scan.window + at;
    if (!looks_like_header(p))
        return ZOFLV_EOF;
    const uint32_t size = zoflv_be24(p + 1);
    const int64_t pos = scan.start + at;
    if (scan.limit - pos <= int64_t{size} + ZOFLV_TAG_OVERHEAD)
        return ZOFLV_EOF;
    const int64_t field = pos + size + ZOFLV_TAG_HEADER;
    uint32_t prev_tag_size = 0;
    if (!read_prev_tag_size(scan, field, &prev_tag_size))
        return ZOFLV_ERR_FAIL;
    // Some writers count the field itself too.
    if (prev_tag_size != size + ZOFLV_TAG_HEADER && prev_tag_size != size + ZOFLV_TAG_OVERHEAD)
        return ZOFLV_EOF;
    if (zoflv_file_setpos(scan.mfal, scan.fh, field + ZOFLV_PREV_TAG_SIZE) != 0)
        return ZOFLV_ERR_FAIL;
    *tag = ZOFLVD_TAG{};
    tag->type = p[0];
    tag->data_size = size;
    const uint32_t time_ms = uint32_t{p[7]} << 24 | zoflv_be24(p + 4);
    tag->timestamp = int64_t{static_cast<int32_t>(time_ms)} * ZOFLV_TICKS_PER_MS; // signed here
    tag->pos = pos;
    return ZOFLV_OK;
}

// Moves the window on: its last unchecked bytes stay, the rest is read after them. False on
// failure.
bool fill_window(ByteScan* scan, int64_t pos)
{
    const int kept = scan->length < ZOFLV_TAG_HEADER ? scan->length : ZOFLV_TAG_HEADER - 1;
    std::memmove(scan->window, scan->window + (scan->length - kept), static_cast<size_t>(kept));
    const int64_t left = zoflv_sub_sat(scan->scan_end, pos);
    const int64_t room = ZOFLVD_SCAN_WINDOW - kept;
    const int64_t wanted = left < room ? left : room;
    if (wanted < 0 ||
        !zoflv_file_read(scan->mfal, scan->fh, scan->window + kept, static_cast<int>(wanted)))
        return false;
    scan->start = pos - kept;
    scan->length = kept + static_cast<int>(wanted);
    return true;
}

int scan_windows(ByteScan* scan, int64_t start, ZOFLVD_TAG* tag)
{
    int64_t pos = start;
    while (pos < scan->scan_end) {
        if (zoflv_file_getpos(scan->mfal, scan->fh, &pos) != 0 || !fill_window(scan, pos))
            return zoflvd_fail(3101);
        const int offsets = scan->length - (ZOFLV_TAG_HEADER - 1);
        for (int at = 0; at < offsets; ++at) {
            const int rc = check_candidate(*scan, at, tag);
            if (rc == ZOFLV_ERR_FAIL)
                return zoflvd_fail(3102);
            if (rc == ZOFLV_OK)
                return ZOFLV_OK;
        }
        if (offsets > 0)
            scan->checked += offsets;
    }
    return ZOFLV_EOF;
}

} // namespace

int zoflvd_scan_bytes(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                      int64_t scan_end, int64_t limit, ZOFLVD_TAG* tag)
{
    ByteScan scan = {mfal, fh, buf, scan_end < limit ? scan_end : limit, limit, start, 0, 0};
    const int rc = scan_windows(&scan, start, tag);
    if (rc == ZOFLV_ERR_FAIL) {
        __android_log_print(ANDROID_LOG_ERROR, ZOFLVD_LOG_TAG, "frm search: %d bytes checked",
                            zoflv_wrap32(scan.checked));
        zoflvd_log_error("zoflvds_seek_bytestream_tag() failed");
    }
    return rc;
}

int zoflvds_seek_bytestream_tag(const _ZOCMN_MFAL* mfal, void* fh, uint8_t* buf, int64_t start,
                                int64_t limit, ZOFLVD_TAG* tag)
{
    return zoflvd_scan_bytes(mfal, fh, buf, start, limit, limit, tag);
}
