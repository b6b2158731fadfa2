// SPDX-License-Identifier: Apache-2.0
#include "bits.h"
#include "config_parsers.h"

namespace zodevice {

namespace {

constexpr PictureSize NONE{0, 0};

/// @param started  whether the data begins with a picture's start code
int result(const Bits& bits, bool started, PictureSize size, PictureSize* out)
{
    if (!bits.ok())
        return MORE_DATA;
    if (!started || size.width == 0 || size.height == 0)
        return BROKEN;
    *out = size;
    return FOUND;
}

} // namespace

int parse_sorenson_h263(const uint8_t* data, size_t size, PictureSize* out)
{
    // By PictureSize, 0 and 1 being a size of its own.
    constexpr PictureSize SIZES[] = {NONE,      NONE,       {352, 288}, {176, 144},
                                     {128, 96}, {320, 240}, {160, 120}, NONE};
    Bits bits(data, size);
    const bool started = bits.u(17) == 1 && bits.u(5) <= 1; // PictureStartCode, Version
    bits.u(8);                                              // TemporalReference
    const uint32_t code = bits.u(3);
    PictureSize picture = SIZES[code];
    if (code <= 1) {
        const int length = code == 0 ? 8 : 16;
        picture.width = static_cast<int32_t>(bits.u(length));
        picture.height = static_cast<int32_t>(bits.u(length));
    }
    bits.u(8); // PictureType, DeblockingFlag, Quantizer: the header's end
    return result(bits, started, picture, out);
}

int parse_plain_h263(const uint8_t* data, size_t size, PictureSize* out)
{
    // By source format; 0 is forbidden, 6 reserved and 7 the extended header.
    constexpr PictureSize SIZES[] = {NONE,       {128, 96},    {176, 144}, {352, 288},
                                     {704, 576}, {1408, 1152}, NONE,       NONE};
    Bits bits(data, size);
    bool started = bits.u(22) == 0x20; // picture start code
    bits.u(8);                         // temporal reference
    started &= bits.u(2) == 2;         // always "10"
    bits.u(3);                         // split screen, document camera, freeze release
    const PictureSize picture = SIZES[bits.u(3)];
    bits.u(5 + 5); // the rest of PTYPE, then PQUANT
    return result(bits, started, picture, out);
}

} // namespace zodevice
