// SPDX-License-Identifier: Apache-2.0
#include "tools/output.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>

std::string textf(const char* format, ...)
{
    char text[512]; // longer than any line of this command but for names, which are not printed so
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string seconds(int64_t ticks)
{
    return std::string(Line().add_seconds(ticks).text());
}

std::string hex(const uint8_t* bytes, size_t count)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * count);
    for (size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

Line& Line::add(std::string_view text)
{
    const size_t n = std::min(text.size(), sizeof m_text - m_size);
    std::memcpy(m_text + m_size, text.data(), n);
    m_size += n;
    return *this;
}

Line& Line::add(int64_t number)
{
    char digits[20]; // INT64_MIN has 19 and a sign
    const auto end = std::to_chars(digits, digits + sizeof digits, number);
    return add({digits, static_cast<size_t>(end.ptr - digits)});
}

Line& Line::add_seconds(int64_t ticks)
{
    constexpr uint64_t per_second = 10000000;
    constexpr size_t least_decimals = 3;
    const uint64_t size =
        ticks < 0 ? uint64_t{0} - static_cast<uint64_t>(ticks) : static_cast<uint64_t>(ticks);
    char decimals[8] = {'.'};
    size_t used = sizeof decimals;
    for (uint64_t rest = size % per_second, i = used; i-- > 1; rest /= 10)
        decimals[i] = static_cast<char>('0' + rest % 10);
    while (used > 1 + least_decimals && decimals[used - 1] == '0')
        --used;
    add(ticks < 0 ? "-" : "");
    return add(static_cast<int64_t>(size / per_second)).add({decimals, used});
}

Line& Line::add_hex(uint32_t number)
{
    char digits[8];
    for (size_t i = sizeof digits; i-- > 0; number >>= 4)
        digits[i] = "0123456789abcdef"[number & 0x0F];
    return add({digits, sizeof digits});
}

Line& Line::align(size_t start, size_t width)
{
    const size_t length = m_size - start;
    if (length >= width || width - length > sizeof m_text - m_size)
        return *this;
    std::memmove(m_text + start + (width - length), m_text + start, length);
    std::memset(m_text + start, ' ', width - length);
    m_size = start + width;
    return *this;
}

namespace {

[[noreturn]] void output_failed()
{
    throw OutputFailure(EXIT_USAGE, "the results could not be written");
}

} // namespace

void buffer_output()
{
    static char buffer[1 << 16];
    if (::isatty(STDOUT_FILENO) == 0)
        std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
}

void put(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        output_failed();
}

std::string json_text(const Json& value)
{
    static const bool terminal = ::isatty(STDOUT_FILENO) != 0;
    return value.dump(-1, ' ', terminal, Json::error_handler_t::replace);
}

void put_line(const Json& value)
{
    put(json_text(value) + '\n');
}

void flush_output()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        output_failed();
}

void complain(const std::string& subject, std::string_view text)
{
    // In order with the results where both go to one place; a failure there is found by
    // flush_output().
    std::fflush(stdout);
    const std::string line = "zoflv: " + printable(subject) + ": " + printable(text) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void attempt(int* worst, const std::string& subject, const std::function<void()>& work)
{
    try {
        work();
    } catch (const OutputFailure&) {
        throw;
    } catch (const Failure& failure) {
        complain(subject, failure.what());
        *worst = std::max<int>(*worst, failure.code());
    } catch (const std::bad_alloc&) {
        complain(subject, "out of memory");
        *worst = std::max<int>(*worst, EXIT_BAD_FILE);
    }
}
