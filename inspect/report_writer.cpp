// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_writer.h"

#include "inspect/printable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace zoflv_inspect {

namespace {

std::string formatted(const char* format, double value, const char* unit)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return std::string(text) + unit;
}

/// Three digits and the unit of the right power of 1000.
std::string three_digits(double value, std::initializer_list<const char*> units)
{
    auto unit = units.begin();
    while (std::fabs(value) >= 999.5 && unit + 1 != units.end()) {
        value /= 1000;
        ++unit;
    }
    const double size = std::fabs(value);
    const bool whole = unit == units.begin() || size >= 99.95;
    return formatted(whole ? "%.0f" : size >= 9.995 ? "%.1f" : "%.2f", value, *unit);
}

} // namespace

std::string escaped(std::string_view text)
{
    std::string out;
    for (const char c : printable(text)) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string clock_text(double ms, int decimals)
{
    const double unit = std::pow(10.0, decimals);
    const double all = std::round(std::fabs(ms) / 1000 * unit) / unit; // rounded before it is split
    std::string text = ms < 0 && all > 0 ? "-" : "";
    char part[64];
    if (all < 60) {
        std::snprintf(part, sizeof part, "%.*f s", decimals, all);
        return text + part;
    }
    const double minutes = std::floor(all / 60);
    const double hours = std::floor(minutes / 60);
    if (hours > 0)
        std::snprintf(part, sizeof part, "%.0f:%02.0f:", hours, minutes - hours * 60);
    else
        std::snprintf(part, sizeof part, "%.0f:", minutes);
    text += part;
    std::snprintf(part, sizeof part, "%0*.*f", decimals > 0 ? decimals + 3 : 2, decimals,
                  all - minutes * 60);
    return text + part;
}

std::string bytes_text(double bytes)
{
    return three_digits(bytes, {" bytes", " kB", " MB", " GB", " TB"});
}

std::string rate_text(double bits_per_second)
{
    return three_digits(bits_per_second, {" bit/s", " kbit/s", " Mbit/s", " Gbit/s"});
}

Markup& Markup::prose(std::string text)
{
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    bool code = false;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('`', at), text.size());
        this->text(text.substr(at, end - at));
        if (end < text.size() && (code || text.find('`', end + 1) != std::string::npos)) {
            m_text += code ? "</code>" : "<code>";
            code = !code;
        } else if (end < text.size()) {
            m_text += '`';
        }
        at = end + 1;
    }
    return *this;
}

Markup& Markup::number(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    std::string digits = text;
    while (digits.back() == '0')
        digits.pop_back();
    if (digits.back() == '.')
        digits.pop_back();
    m_text += digits;
    return *this;
}

Table::Table(std::string_view caption, const std::vector<std::string_view>& columns)
{
    m_page.raw("<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"")
        .text(caption)
        .raw("\"><table><caption>")
        .text(caption)
        .raw("</caption><thead><tr>");
    for (std::string_view column : columns) {
        const bool number = column.substr(0, 1) == "#";
        m_numbers += number ? '#' : ' ';
        if (number)
            m_page.raw("<th scope=\"col\" class=\"n\">").text(column.substr(1));
        else
            m_page.raw("<th scope=\"col\">").text(column);
        m_page.raw("</th>");
    }
    m_page.raw("</tr></thead><tbody>");
}

Table& Table::cell(std::string_view text)
{
    const bool head = m_column == 0;
    if (head)
        m_page.raw("<tr><th scope=\"row\"");
    else
        m_page.raw("<td");
    if (m_numbers[m_column] == '#')
        m_page.raw(" class=\"n\"");
    m_page.raw(">").text(text);
    if (head)
        m_page.raw("</th>");
    else
        m_page.raw("</td>");
    if (++m_column == m_numbers.size()) {
        m_page.raw("</tr>\n");
        m_column = 0;
    }
    return *this;
}

Markup Table::end()
{
    m_page.raw("</tbody></table></div>");
    return m_page;
}

} // namespace zoflv_inspect
