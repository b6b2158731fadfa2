// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_sh_priv.h"

#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflvd_h263.h"

// H.263, screen video, VP6: each frame has the picture size.

namespace {

int32_t store_size(ZOFLVD_SH* sh, int32_t width, int32_t height)
{
    if (width < 1 || height < 1)
        return zoflvd_sh_fail(3201);
    sh->width = width;
    sh->height = height;
    return ZOFLVD_SH_DONE;
}

} // namespace

int32_t sh_video_h263(uint32_t, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    ZOFLVD_H263_HDR hdr = {};
    if (zoflvd_h263_read(rb, &hdr) != ZOFLV_OK)
        return zoflvd_sh_fail(3202);
    // 0 x 0 is possible: the metadata's size is then taken.
    sh->width = static_cast<int32_t>(hdr.width);
    sh->height = static_cast<int32_t>(hdr.height);
    return ZOFLVD_SH_DONE;
}

int32_t sh_video_scrn(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t screen_video_2 = 6;

    uint32_t block_width = 0;
    uint32_t image_width = 0;
    uint32_t block_height = 0;
    uint32_t image_height = 0;
    if ((codec == screen_video_2 && zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &block_width) ||
        !zoflvd_rdbuf_get_bits(rb, 12, &image_width) ||
        !zoflvd_rdbuf_get_bits(rb, 4, &block_height) ||
        !zoflvd_rdbuf_get_bits(rb, 12, &image_height))
        return zoflvd_sh_fail(3203);
    // The image and one block, whose size is 16 x (code + 1) pixels.
    return store_size(sh, static_cast<int32_t>(image_width + 16 * block_width + 16),
                      static_cast<int32_t>(image_height + 16 * block_height + 16));
}

int32_t sh_video_vp6(uint32_t codec, ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb)
{
    constexpr uint32_t vp6_with_alpha = 5;

    uint32_t adjust_x = 0;
    uint32_t adjust_y = 0;
    uint32_t inter = 0;
    uint32_t marker = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 4, &adjust_x) || !zoflvd_rdbuf_get_bits(rb, 4, &adjust_y) ||
        (codec == vp6_with_alpha &&
         !zoflvd_rdbuf_get_bits(rb, 24, nullptr)) || // offset of the alpha data
        !zoflvd_rdbuf_get_bits(rb, 1, &inter) ||
        !zoflvd_rdbuf_get_bits(rb, 6, nullptr) || // quantizer
        !zoflvd_rdbuf_get_bits(rb, 1, &marker))
        return zoflvd_sh_fail(3204);
    if (inter) {
        zoflvd_sh_log_error("zoflvd vp6: not an I-Frame, can't get width and height!");
        return ZOFLVD_SH_AGAIN;
    }
    uint32_t profile = 0;
    if (!zoflvd_rdbuf_get_bits(rb, 5, nullptr) ||
        !zoflvd_rdbuf_get_bits(rb, 2, &profile) || // version
        !zoflvd_rdbuf_get_bits(rb, 1, nullptr))    // interlaced
        return zoflvd_sh_fail(3205);
    if ((marker == 1 || profile == 0) &&
        !zoflvd_rdbuf_get_bits(rb, 16, nullptr)) // second partition's offset
        return zoflvd_sh_fail(3206);
    uint8_t displayed_rows = 0; // of macroblocks; the encoded rows and columns come first
    uint8_t displayed_columns = 0;
    if (zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK || zoflvd_rdbuf_byte(rb, nullptr) != ZOFLV_OK ||
        zoflvd_rdbuf_byte(rb, &displayed_rows) != ZOFLV_OK ||
        zoflvd_rdbuf_byte(rb, &displayed_columns) != ZOFLV_OK)
        return zoflvd_sh_fail(3207);
    return store_size(sh, displayed_columns * 16 - static_cast<int32_t>(adjust_x),
                      displayed_rows * 16 - static_cast<int32_t>(adjust_y));
}
