// SPDX-License-Identifier: Apache-2.0
#include "bits.h"
#include "config_parsers.h"

namespace zodevice {

namespace {

constexpr uint32_t TYPE_ESCAPE = 31;
constexpr uint32_t RATE_ESCAPE = 15;
constexpr uint32_t TYPE_SBR = 5; // spectral band replication
constexpr uint32_t TYPE_PS = 29; // SBR with parametric stereo

uint32_t read_object_type(Bits& bits)
{
    const uint32_t type = bits.u(5);
    return type == TYPE_ESCAPE ? 32 + bits.u(6) : type;
}

bool read_sampling_frequency(Bits& bits)
{
    const uint32_t index = bits.u(4);
    if (index == RATE_ESCAPE)
        return bits.u(24) != 0;
    return index < 13; // 13 and 14 are reserved
}

} // namespace

int parse_audio_specific_config(const uint8_t* data, size_t size)
{
    Bits bits(data, size);
    const uint32_t type = read_object_type(bits);
    bool known = type != 0 && read_sampling_frequency(bits);
    bits.u(4); // channelConfiguration
    if (known && (type == TYPE_SBR || type == TYPE_PS)) {
        known = read_sampling_frequency(bits); // of the extension
        read_object_type(bits);                // of the core
    }
    return known && bits.ok() ? static_cast<int>(type) : BROKEN;
}

} // namespace zodevice
