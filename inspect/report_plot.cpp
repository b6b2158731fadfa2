// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_plot.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace zoflv_inspect {

namespace {

// At most, and one.
constexpr int TICKS_UP = 5, FEW_TICKS = 4, MANY_TICKS = 9;

/// Steps between ticks that a reader of clocks expects, ms.
constexpr double clock_steps[] = {1e3,    2e3,    5e3,     10e3,    15e3,    30e3,
                                  60e3,   120e3,  300e3,   600e3,   900e3,   1800e3,
                                  3600e3, 7200e3, 14400e3, 21600e3, 43200e3, 86400e3};

/// 1, 2 or 5 times a power of ten.
double decimal_step(double least)
{
    const double power = std::pow(10.0, std::floor(std::log10(least)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (step * power >= least * 0.999999)
            return step * power;
    }
    return 10 * power;
}

double step_of(const Axis& axis, int most)
{
    const double least = axis.span() / most;
    if (axis.unit == Unit::TIME && least > clock_steps[0] && least <= *std::rbegin(clock_steps))
        return *std::lower_bound(std::begin(clock_steps), std::end(clock_steps), least);
    return decimal_step(least);
}

int decimals_of(double step_seconds)
{
    return std::clamp(static_cast<int>(-std::floor(std::log10(step_seconds * 1.000001))), 0, 3);
}

std::string tick_text(const Axis& axis, double value, double step)
{
    switch (axis.unit) {
    case Unit::TIME:
        return clock_text(value, decimals_of(step / 1000));
    case Unit::DISTANCE:
        return std::fabs(axis.to) < 2000 && std::fabs(axis.from) < 2000
                   ? std::to_string(std::llround(value)) + " ms"
                   : clock_text(value, decimals_of(step / 1000));
    case Unit::BYTES:
        return value == 0 ? "0" : bytes_text(value);
    case Unit::BIT_RATE:
        return value == 0 ? "0" : rate_text(value);
    }
    return {};
}

/// Calls `draw` with each tick of an axis.
template <typename Draw>
void each_tick(const Axis& axis, int most, const Draw& draw)
{
    const double step = step_of(axis, most);
    const double first = std::ceil(axis.from / step - 1e-9);
    for (int i = 0; i <= most + 1; ++i) { // counted: adding up a step may not move a large value
        const double value = (first + i) * step;
        if (value > axis.to + step * 1e-9)
            return;
        draw(value == 0 ? 0 : value, step); // no -0
    }
}

void marker_shape(Markup* out, Marker marker, std::string_view style)
{
    out->raw("<path class=\"").text(style);
    switch (marker) {
    case Marker::DOT:
        out->raw(" dot\" d=\"M-3.5 0a3.5 3.5 0 1 0 7 0a3.5 3.5 0 1 0-7 0Z\"/>");
        break;
    case Marker::RING:
        out->raw(" ring\" d=\"M-6 0a6 6 0 1 0 12 0a6 6 0 1 0-12 0Z\"/>");
        break;
    case Marker::DIAMOND:
        out->raw(" ring\" d=\"M0-6L6 0L0 6L-6 0Z\"/>");
        break;
    case Marker::CROSS:
        out->raw(" ring\" d=\"M-5-5L5 5M-5 5L5-5\"/>");
        break;
    }
}

} // namespace

Axis with_room(Axis axis, double share)
{
    if (axis.span() <= 0) { // a single value
        const double room = axis.unit == Unit::BYTES ? 1 : 500;
        return {axis.from - room, axis.from + room, axis.unit};
    }
    return {axis.from - axis.span() * share, axis.to + axis.span() * share, axis.unit};
}

Plot::Plot(std::string_view id, std::string_view title, std::string_view description, Axis x,
           Axis y)
    : m_x(x), m_y(y)
{
    m_head.raw("<svg class=\"plot\" role=\"img\" width=\"100%\" height=\"240\" aria-labelledby=\"")
        .text(id)
        .raw("-t\"><title id=\"")
        .text(id)
        .raw("-t\">")
        .text(title)
        .raw("</title><desc>")
        .text(description)
        .raw("</desc>\n");
}

double Plot::across(double x) const
{
    return std::clamp((x - m_x.from) / m_x.span() * 100, 0.0, 100.0);
}

double Plot::down(double y) const
{
    return std::clamp(BOTTOM - (y - m_y.from) / m_y.span() * (BOTTOM - TOP), TOP, BOTTOM);
}

void Plot::point(double x, double y)
{
    m_path.number(across(x) * 10).raw(" ").number(down(y)); // 1000 units across
}

void Plot::move(double x, double y)
{
    m_path.raw("M");
    point(x, y);
}

void Plot::line(double x, double y)
{
    m_path.raw("L");
    point(x, y);
}

void Plot::stroke(std::string_view style)
{
    if (!m_path.empty())
        m_stretched.raw("<path class=\"").text(style).raw("\" d=\"").add(m_path).raw("\"/>\n");
    m_path = Markup();
}

void Plot::marker(Marker marker, std::string_view style, double x, double y)
{
    m_marks.raw("<svg overflow=\"visible\" x=\"")
        .number(across(x))
        .raw("%\" y=\"")
        .number(down(y))
        .raw("\">");
    marker_shape(&m_marks, marker, style);
    m_marks.raw("</svg>\n");
}

void Plot::rule(std::string_view style, double x)
{
    const double at = across(x);
    m_marks.raw("<line class=\"")
        .text(style)
        .raw("\" x1=\"")
        .number(at)
        .raw("%\" x2=\"")
        .number(at);
    m_marks.raw("%\" y1=\"").number(TOP).raw("\" y2=\"").number(BOTTOM).raw("\"/>\n");
}

void Plot::band(std::string_view style, double from, double to)
{
    const double width = std::max(across(to) - across(from), 0.4); // seen however short it is
    m_marks.raw("<rect class=\"")
        .text(style)
        .raw("\" x=\"")
        .number(std::min(across(from), 100 - width));
    m_marks.raw("%\" width=\"").number(width).raw("%\" y=\"").number(TOP).raw("\" height=\"");
    m_marks.number(BOTTOM - TOP).raw("\"/>\n");
}

void Plot::grid_across(Markup* lines, Markup* texts) const
{
    each_tick(m_y, TICKS_UP, [&](double value, double step) {
        const double y = down(value);
        lines->raw("<line class=\"grid\" x1=\"0\" x2=\"100%\" y1=\"").number(y);
        lines->raw("\" y2=\"").number(y).raw("\"/>\n");
        texts->raw("<text class=\"tick end\" x=\"-8\" y=\"").number(y + 4).raw("\">");
        texts->text(tick_text(m_y, value, step)).raw("</text>\n");
    });
}

void Plot::grid_down(Markup* lines, Markup* texts, int most) const
{
    each_tick(m_x, most, [&](double value, double step) {
        const double x = across(value);
        lines->raw("<line class=\"grid\" y1=\"").number(TOP).raw("\" y2=\"").number(BOTTOM + 4);
        lines->raw("\" x1=\"").number(x).raw("%\" x2=\"").number(x).raw("%\"/>\n");
        if (x > 90) // its text would meet the end of the picture
            return;
        texts->raw("<text class=\"tick middle\" y=\"").number(BOTTOM + 20).raw("\" x=\"");
        texts->number(x).raw("%\">").text(tick_text(m_x, value, step)).raw("</text>\n");
    });
}

Markup Plot::svg() const
{
    Markup texts;
    Markup out = m_head;
    grid_across(&out, &texts);
    // Ticks across twice: the style sheet shows those for which the page is wide enough.
    out.raw("<g class=\"many\">");
    texts.raw("<g class=\"many\">");
    grid_down(&out, &texts, MANY_TICKS);
    out.raw("</g><g class=\"few\">");
    texts.raw("</g><g class=\"few\">");
    grid_down(&out, &texts, FEW_TICKS);
    out.raw("</g>\n");
    texts.raw("</g>\n");
    out.raw("<svg class=\"data\" width=\"100%\" height=\"240\" viewBox=\"0 0 1000 240\" "
            "preserveAspectRatio=\"none\">\n")
        .add(m_stretched)
        .raw("</svg>\n<g class=\"data\">")
        .add(m_marks)
        .raw("</g>\n")
        .add(texts)
        .raw("</svg>\n");
    return out;
}

Legend& Legend::line(std::string_view style, std::string_view text)
{
    m_items.raw("<li><svg width=\"28\" height=\"16\" aria-hidden=\"true\"><path class=\"")
        .text(style);
    m_items.raw("\" d=\"M2 8L26 8\"/></svg>").text(text).raw("</li>");
    return *this;
}

Legend& Legend::marker(Marker marker, std::string_view style, std::string_view text)
{
    m_items.raw("<li><svg width=\"28\" height=\"16\" aria-hidden=\"true\">"
                "<svg overflow=\"visible\" x=\"14\" y=\"8\">");
    marker_shape(&m_items, marker, style);
    m_items.raw("</svg></svg>").text(text).raw("</li>");
    return *this;
}

Markup Legend::end() const
{
    Markup out;
    out.raw("<ul class=\"legend\">").add(m_items).raw("</ul>\n");
    return out;
}

} // namespace zoflv_inspect
