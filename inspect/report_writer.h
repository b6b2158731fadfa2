// SPDX-License-Identifier: Apache-2.0
/// @file
/// The text of a page in the making: markup and text are told apart, so that no text becomes markup.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zoflv_inspect {

/// Text for a page or an attribute in quotes: without what printable() replaces, and escaped.
std::string escaped(std::string_view text);

/// "12.3 s", "1:23.5", "1:01:23.5"; the digits after the point as asked for.
std::string clock_text(double ms, int decimals);
/// "1.4 GB", "320 kB", "17 bytes"
std::string bytes_text(double bytes);
/// "1.40 Mbit/s", "320 kbit/s"
std::string rate_text(double bits_per_second);

class Markup {
public:
    /// Markup, never anything that comes from a file.
    template <size_t N>
    Markup& raw(const char (&markup)[N])
    {
        m_text.append(markup, N - 1);
        return *this;
    }
    Markup& text(std::string_view text)
    {
        m_text += escaped(text);
        return *this;
    }
    /// Text as a sentence: it begins with a capital letter, and what is in backquotes is code.
    Markup& prose(std::string text);
    Markup& add(const Markup& other)
    {
        m_text += other.m_text;
        return *this;
    }
    /// A number for an attribute: three decimals, and no more of them than it has.
    Markup& number(double value);

    bool empty() const { return m_text.empty(); }
    const std::string& str() const { return m_text; }

private:
    std::string m_text;
};

/// A table with a caption and a head; the first cell of a row is its head, numbers are aligned right.
class Table {
public:
    /// @param columns  heads; of a column of numbers with a '#' in front
    Table(std::string_view caption, const std::vector<std::string_view>& columns);

    Table& cell(std::string_view text);
    Markup end();

private:
    Markup m_page;
    std::string m_numbers; ///< a character for each column: '#' for numbers
    size_t m_column = 0;
};

} // namespace zoflv_inspect
