// SPDX-License-Identifier: Apache-2.0
/// @file
/// Values gathered over time or over a file's bytes in a fixed number of bins, however long it is.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace zoflv_inspect {

/// The smallest and the largest of some values.
struct Extent {
    int64_t min = std::numeric_limits<int64_t>::max();
    int64_t max = std::numeric_limits<int64_t>::min();

    bool any() const { return min <= max; }
    void add(int64_t value) { merge({value, value}); }
    void merge(const Extent& other)
    {
        min = std::min(min, other.min);
        max = std::max(max, other.max);
    }
};

/// Bytes that go to the decoders.
struct RateBin {
    std::array<uint64_t, 2> bytes{}; ///< video, audio

    void merge(const RateBin& other)
    {
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] += other.bytes[i];
    }
};

/// What tags at a place of the file have, ms.
struct PlaceBin {
    std::array<Extent, 2> dts{}; ///< decoding times of video, audio
    Extent apart{};              ///< audio's time less that of the video tag before it

    void merge(const PlaceBin& other)
    {
        for (size_t i = 0; i < dts.size(); ++i)
            dts[i].merge(other.dts[i]);
        apart.merge(other.apart);
    }
};

/// Distances from the keyframes of a time to those before them, ms.
struct SpacingBin {
    Extent ms{};

    void merge(const SpacingBin& other) { ms.merge(other.ms); }
};

/// Bins of one width side by side. The width doubles, and neighbours become one, whenever there would
/// be too many; so the memory is constant, and each position costs a fixed number of steps on average.
template <typename Bin>
class BinSeries {
public:
    static constexpr size_t MOST = 256;

    /// @param width  of a bin at first
    explicit BinSeries(int64_t width) : m_width(width) {}

    /// The bin of a position, within 2^62 of 0.
    Bin& at(int64_t position)
    {
        int64_t number = floor_div(position, m_width);
        if (m_bins.empty())
            m_first = number;
        while (std::max(number, last()) - std::min(number, m_first) >= static_cast<int64_t>(MOST)) {
            halve();
            number = floor_div(position, m_width);
        }
        if (number < m_first) {
            m_bins.insert(m_bins.begin(), static_cast<size_t>(m_first - number), Bin{});
            m_first = number;
        }
        const auto index = static_cast<size_t>(number - m_first);
        if (index >= m_bins.size())
            m_bins.resize(index + 1);
        return m_bins[index];
    }

    int64_t width() const { return m_width; }
    size_t size() const { return m_bins.size(); }
    const Bin& operator[](size_t index) const { return m_bins[index]; }
    /// Where a bin begins; with size() where the last one ends.
    int64_t start(size_t index) const { return (m_first + static_cast<int64_t>(index)) * m_width; }
    /// The same in no more than so many bins, at least 2.
    BinSeries coarse(size_t most) const
    {
        BinSeries series = *this;
        while (series.size() > most)
            series.halve();
        return series;
    }

private:
    static int64_t floor_div(int64_t a, int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }
    int64_t last() const { return m_first + static_cast<int64_t>(m_bins.size()) - 1; }

    void halve()
    {
        const int64_t first = floor_div(m_first, 2);
        std::vector<Bin> bins(
            m_bins.empty() ? 0 : static_cast<size_t>(floor_div(last(), 2) - first + 1));
        for (size_t i = 0; i < m_bins.size(); ++i)
            bins[static_cast<size_t>(floor_div(m_first + static_cast<int64_t>(i), 2) - first)]
                .merge(m_bins[i]);
        m_bins = std::move(bins);
        m_first = first;
        m_width *= 2;
    }

    int64_t m_width;
    int64_t m_first = 0; ///< number of the first bin, which begins at this times the width
    std::vector<Bin> m_bins;
};

} // namespace zoflv_inspect
