// SPDX-License-Identifier: Apache-2.0
/// @file
/// Arithmetic on numbers that come from a file, without undefined behaviour.
#pragma once

#include <cfloat>
#include <cstdint>
#include <limits>

static_assert(FLT_EVAL_METHOD == 0 || FLT_EVAL_METHOD == 1,
              "doubles computed with more bits give other times than on other machines");

/// Converts by truncation toward zero; NaN gives 0, values outside the range of `Int` its limit.
template <typename Int>
inline Int zoflv_from_double(double value)
{
    // 2^bits is exact in a double whereas max() may not be: the first value above the range.
    constexpr double above = 2.0 * static_cast<double>(std::numeric_limits<Int>::max() / 2 + 1);
    constexpr double lowest = static_cast<double>(std::numeric_limits<Int>::min());
    if (value != value)
        return 0;
    if (value >= above)
        return std::numeric_limits<Int>::max();
    if (value <= lowest)
        return std::numeric_limits<Int>::min();
    return static_cast<Int>(value);
}

/// Adds two file offsets. Returns false, leaving `sum` alone, when the sum does not fit.
inline bool zoflv_pos_add(int64_t a, int64_t b, int64_t* sum)
{
    int64_t value = 0;
    if (__builtin_add_overflow(a, b, &value))
        return false;
    *sum = value;
    return true;
}

/// Sum and difference of file offsets, limited to the range of int64_t.
inline int64_t zoflv_add_sat(int64_t a, int64_t b)
{
    int64_t value = 0;
    if (!__builtin_add_overflow(a, b, &value))
        return value;
    return b < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

inline int64_t zoflv_sub_sat(int64_t a, int64_t b)
{
    int64_t value = 0;
    if (!__builtin_sub_overflow(a, b, &value))
        return value;
    return b > 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

/// Reduces to 32 bits as two's complement arithmetic would.
inline int32_t zoflv_wrap32(int64_t value)
{
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}
