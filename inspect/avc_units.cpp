// SPDX-License-Identifier: Apache-2.0
#include "inspect/avc_units.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr uint8_t NAL_SLICE = 1;
constexpr uint8_t NAL_IDR = 5;
constexpr uint8_t NAL_SEI = 6;
constexpr uint8_t SEI_RECOVERY_POINT = 6;

uint32_t read_be(const uint8_t* p, size_t bytes)
{
    uint32_t value = 0;
    for (size_t i = 0; i < bytes; ++i)
        value = value << 8 | p[i];
    return value;
}

// Steps over `count` parameter sets; false when they do not lie inside.
bool skip_sets(const View& record, size_t* at, int count)
{
    constexpr size_t LENGTH = 2;
    for (int i = 0; i < count; ++i) {
        if (record.size - *at < LENGTH)
            return false;
        const size_t size = read_be(record.data + *at, LENGTH);
        *at += LENGTH;
        if (size > record.size - *at)
            return false;
        *at += size;
    }
    return true;
}

void look_at_unit(const uint8_t* unit, size_t size, UnitFacts* facts)
{
    const uint8_t type = unit[0] & 0x1F;
    facts->idr = facts->idr || type == NAL_IDR;
    facts->slices = facts->slices || (type >= NAL_SLICE && type <= NAL_IDR);
    facts->recovery =
        facts->recovery || (type == NAL_SEI && size > 1 && unit[1] == SEI_RECOVERY_POINT);
}

} // namespace

AvcRecord read_avc_record(const View& record)
{
    constexpr size_t HEAD = 6; // up to the number of sequence parameter sets
    AvcRecord out;
    if (record.size < HEAD)
        return out;
    out.length_size = (record.data[4] & 3U) + 1;
    const int sets = record.data[5] & 31;
    if (sets > 0 && record.size > HEAD + 2) {
        const uint8_t* const sps = record.data + HEAD + 2;
        out.sps = {sps, std::min<size_t>(read_be(sps - 2, 2), record.size - HEAD - 2)};
    }
    size_t at = HEAD;
    if (sets == 0 || !skip_sets(record, &at, sets) || at == record.size)
        return out;
    const int picture_sets = record.data[at++];
    out.whole = skip_sets(record, &at, picture_sets);
    return out;
}

UnitFacts read_units(const View& payload, uint32_t length_size)
{
    UnitFacts facts;
    size_t at = 0;
    while (payload.size - at > length_size) {
        const size_t size = read_be(payload.data + at, length_size);
        at += length_size;
        if (size > payload.size - at)
            break;
        if (size > 0)
            look_at_unit(payload.data + at, size, &facts);
        at += size;
        ++facts.units;
    }
    facts.fit = at == payload.size && facts.units > 0;
    const bool three = payload.size >= 3 && read_be(payload.data, 3) == 1;
    const bool four = payload.size >= 4 && read_be(payload.data, 4) == 1;
    facts.start_codes = !facts.fit && (three || four);
    return facts;
}

} // namespace zoflv_inspect
