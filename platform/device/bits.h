// SPDX-License-Identifier: Apache-2.0
/// @file
/// Bits of a block of memory, most significant first.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zodevice {

/// A read past the end gives 0 and clears `ok`, for good.
class Bits {
public:
    Bits(const uint8_t* data, size_t size) : m_data(data), m_left(uint64_t{size} * 8) {}

    bool ok() const { return m_ok; }

    /// @param count  0 to 32
    uint32_t u(int count)
    {
        if (static_cast<uint64_t>(count) > m_left) {
            m_left = 0;
            m_ok = false;
        }
        uint32_t value = 0;
        for (; count > 0 && m_ok; --count)
            value = value << 1 | next();
        return value;
    }

    bool flag() { return u(1) != 0; }

    /// Exp-Golomb. A code of more than 31 leading zeros is an error.
    uint32_t ue()
    {
        int zeros = 0;
        while (m_ok && !flag()) {
            if (++zeros > 31)
                m_ok = false;
        }
        return m_ok ? (uint32_t{1} << zeros) - 1 + u(zeros) : 0;
    }

    int32_t se()
    {
        const int64_t k = ue();
        return static_cast<int32_t>(k % 2 != 0 ? (k + 1) / 2 : -(k / 2));
    }

private:
    uint32_t next()
    {
        const uint32_t bit = static_cast<uint32_t>(*m_data) >> (7 - m_bit) & 1;
        m_bit = (m_bit + 1) % 8;
        m_data += m_bit == 0;
        --m_left;
        return bit;
    }

    const uint8_t* m_data;
    uint64_t m_left; // bits
    int m_bit = 0;   // of *m_data, 0 the most significant
    bool m_ok = true;
};

} // namespace zodevice
