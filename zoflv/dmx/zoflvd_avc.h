// SPDX-License-Identifier: Apache-2.0
/// @file
/// The AVC configuration record, which comes with the codec header and inside a stream.
#pragma once

#include "zoflv/dmx/zoflvd_rdbuf.h"
#include "zoflv/dmx/zoflvd_sh.h"

#include <cstdint>

/// Parses an AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.2.4.1) at the cursor of `rb`.
///
/// Sets `h264_frm_len_size`; with an output also `width` and `height`, from the first sequence
/// parameter set (ISO/IEC 14496-10, 7.3.2.1.1).
/// @param out       receives every parameter set after a start code 00 00 00 01, `*csd_size` bytes
///                  as a call with a null `out` reports them; null: measure only
/// @param csd_size  receives the bytes of that output; may be null, as the two below
/// @param body_len  receives the bytes of the record read after its first five
/// @param rec_len   receives the bytes of the record read
/// @return 0 or -1; the sizes are written on success only
int sh_video_avc_dec_cfg(ZOFLVD_SH* sh, ZOFLVD_RDBUF* rb, uint8_t* out, int32_t* csd_size,
                         int32_t* body_len, int32_t* rec_len);
