// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_h263.h"

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"

namespace {

struct Size {
    uint32_t width;
    uint32_t height;
};

// By PictureSize; 0 and 1 carry their size in the header, 7 is reserved.
constexpr Size sizes[8] = {
    {0, 0}, {0, 0}, {352, 288}, {176, 144}, {128, 96}, {320, 240}, {160, 120}, {0, 0},
};

bool read_size(ZOFLVD_RDBUF* rb, Size* size)
{
    uint32_t code = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 3, &code)) // PictureSize
        return false;
    *size = sizes[code];
    if (code > 1)
        return true;
    const int width_bits = code == 0 ? 8 : 16;
    return zoflvd_rdbuf_get_bits(rb, width_bits, &size->width) &&
           zoflvd_rdbuf_get_bits(rb, width_bits, &size->height);
}

} // namespace

int zoflvd_h263_read(ZOFLVD_RDBUF* rb, ZOFLVD_H263_HDR* hdr)
{
    uint32_t start_code = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 17, &start_code) || start_code != 1)
        return ZOFLV_ERR_FAIL;
    uint32_t version = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 5, &version))
        return ZOFLV_ERR_FAIL;
    if (version >= 2) {
        __android_log_print(ANDROID_LOG_WARN, "zoflvd_h263", "unsupported h.263 version %d",
                            static_cast<int>(version));
        return ZOFLV_ERR_FAIL;
    }
    Size size = {};
    if (!zoflvd_rdbuf_get_bits(rb, 8, &hdr->temporal_ref) || !read_size(rb, &size) ||
        !zoflvd_rdbuf_get_bits(rb, 2, &hdr->picture_type) ||
        !zoflvd_rdbuf_get_bits(rb, 1, &hdr->deblocking) ||
        !zoflvd_rdbuf_get_bits(rb, 5, &hdr->quantizer))
        return ZOFLV_ERR_FAIL;
    hdr->valid = 1;
    hdr->rsvd = 0;

    uint32_t extra = 0; // ExtraInformationFlag: another byte follows
    if (!zoflvd_rdbuf_get_bits(rb, 1, &extra))
        return ZOFLV_ERR_FAIL;
    while (extra) {
        if (!zoflvd_rdbuf_get_bits(rb, 8, nullptr) || !zoflvd_rdbuf_get_bits(rb, 1, &extra))
            return ZOFLV_ERR_FAIL;
    }
    hdr->width = size.width;
    hdr->height = size.height;
    return ZOFLV_OK;
}
