// SPDX-License-Identifier: Apache-2.0
#include "tools/line.h"

#include "tools/output.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace {

template <typename T>
void append_number(std::string* out, T value)
{
    char digits[32]; // the longest double has 24
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out->append(digits, end);
}

} // namespace

void LineWriter::flush()
{
    put(m_block);
    m_block.clear();
    m_line = 0;
}

LineWriter& LineWriter::number(int64_t value)
{
    append_number(&m_block, value);
    return *this;
}

LineWriter& LineWriter::number(double value)
{
    if (std::isfinite(value))
        append_number(&m_block, value);
    else
        m_block += "null";
    return *this;
}

LineWriter& LineWriter::seconds(int64_t ms)
{
    const int64_t size = std::abs(ms);
    if (ms < 0)
        m_block += '-';
    number(size / 1000);
    const auto rest = static_cast<int>(size % 1000);
    m_block += {'.', static_cast<char>('0' + rest / 100), static_cast<char>('0' + rest / 10 % 10),
                static_cast<char>('0' + rest % 10)};
    return *this;
}

LineWriter& LineWriter::column(size_t column)
{
    const size_t length = m_block.size() - m_line;
    m_block.append(length < column ? column - length : 1, ' ');
    return *this;
}

LineWriter& LineWriter::right(size_t from, size_t width)
{
    const size_t length = m_block.size() - from;
    if (length < width)
        m_block.insert(from, width - length, ' ');
    return *this;
}

LineWriter& LineWriter::quoted(std::string_view text)
{
    m_block += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
    return *this;
}

LineWriter& LineWriter::end_line()
{
    m_block += '\n';
    m_line = m_block.size();
    spill();
    return *this;
}
