// SPDX-License-Identifier: Apache-2.0
/// @file
/// What both kinds of handle answer from a stream's codec header record.
#pragma once

#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_sh.h"

#include <cstddef>
#include <cstring>

static_assert(sizeof(ZOFLVD_INFO_VID) == 9 * sizeof(int32_t), "packed as the record it copies");
static_assert(sizeof(ZOFLVD_INFO_AUD) == sizeof(ZOFLVD_INFO_VID), "one layout, two meanings");
static_assert(offsetof(ZOFLVD_SH, fourcc_out) == sizeof(ZOFLVD_INFO_VID),
              "the information records are the first nine fields");

/// Fills a ZOFLVD_INFO_VID or ZOFLVD_INFO_AUD.
inline void zoflvd_copy_info(const ZOFLVD_SH& sh, void* out)
{
    std::memcpy(out, &sh, sizeof(ZOFLVD_INFO_VID));
}

/// As zoflvd_get_format().
inline int zoflvd_copy_format(const ZOFLVD_SH& sh, void* buf, int* size)
{
    if (sh.csd ? sh.csd_size < 1 : sh.csd_size != 0)
        return ZOFLV_ERR_FORMAT;
    if (size)
        *size = sh.csd_size;
    if (buf && sh.csd)
        std::memcpy(buf, sh.csd, static_cast<size_t>(sh.csd_size));
    return ZOFLV_OK;
}
