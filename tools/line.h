// SPDX-License-Identifier: Apache-2.0
/// @file
/// Output lines put together without an allocation for each: a listing can have millions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// A block of lines, written to stdout when it is large enough and by flush().
class LineWriter {
public:
    /// Throws OutputFailure, as put() does.
    void flush();

    LineWriter& text(std::string_view text)
    {
        m_block += text;
        return *this;
    }
    LineWriter& number(int64_t value);
    /// The shortest digits that give the value again; "null" for what JSON has no number for.
    LineWriter& number(double value);
    /// Milliseconds as seconds with three decimals.
    LineWriter& seconds(int64_t ms);
    /// Blanks up to a column of the line, at least one.
    LineWriter& column(size_t column);
    /// Blanks in front of what was added since `from`, a value of mark(), up to `width`.
    LineWriter& right(size_t from, size_t width);
    /// A JSON string; bytes that are no UTF-8 become replacement characters.
    LineWriter& quoted(std::string_view text);
    LineWriter& end_line();

    /// Writes out a line that is very long so far; its columns count from here then.
    void spill()
    {
        if (m_block.size() >= BLOCK)
            flush();
    }

    size_t mark() const { return m_block.size(); }

private:
    static constexpr size_t BLOCK = 64 * 1024;

    std::string m_block;
    size_t m_line = 0; ///< where the line begins
};
