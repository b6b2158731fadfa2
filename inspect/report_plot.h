// SPDX-License-Identifier: Apache-2.0
/// @file
/// A picture with two axes as inline SVG, as wide as the page lets it be.
#pragma once

#include "inspect/report_writer.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zoflv_inspect {

enum class Unit : uint8_t {
    TIME,     ///< ms, as a clock shows it
    DISTANCE, ///< ms, as seconds
    BYTES,
    BIT_RATE, ///< bits per second
};

/// What an axis reaches over.
struct Axis {
    double from = 0;
    double to = 1;
    Unit unit = Unit::TIME;

    double span() const { return to - from; }
};

/// The axis a little longer, so that nothing lies on its ends; one that spans nothing gets a length.
Axis with_room(Axis axis, double share);

/// Markers of single points; each has its own shape, so that none is told by its colour alone.
enum class Marker : uint8_t { DOT, RING, DIAMOND, CROSS };

/// The height is fixed, and positions across are shares of the width: texts keep their size on a narrow
/// page. Classes are names of the page's style sheet.
class Plot {
public:
    static constexpr double HEIGHT = 240, TOP = 12, BOTTOM = 212; ///< pixels; of the plotted area

    /// @param id  of the picture in the page
    Plot(std::string_view id, std::string_view title, std::string_view description, Axis x, Axis y);

    /// A line; a point after a break() begins anew.
    void move(double x, double y);
    void line(double x, double y);
    void close() { m_path.raw("Z"); }
    /// Ends the line or area made from the points so far.
    void stroke(std::string_view style);

    void marker(Marker marker, std::string_view style, double x, double y);
    /// From top to bottom.
    void rule(std::string_view style, double x);
    void band(std::string_view style, double from, double to);

    Markup svg() const;

private:
    double across(double x) const; ///< share of the width, per cent
    double down(double y) const;   ///< pixels

    void point(double x, double y);
    void grid_across(Markup* lines, Markup* texts) const;
    void grid_down(Markup* lines, Markup* texts, int most) const;

    Markup m_head;
    const Axis m_x, m_y;
    Markup m_path;
    Markup m_stretched; ///< lines and areas, which the width stretches
    Markup m_marks;     ///< what keeps its shape
};

/// What the marks of a picture mean: entries with a sample of each style.
class Legend {
public:
    Legend& line(std::string_view style, std::string_view text);
    Legend& marker(Marker marker, std::string_view style, std::string_view text);
    Markup end() const;

private:
    Markup m_items;
};

} // namespace zoflv_inspect
