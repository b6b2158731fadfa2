// SPDX-License-Identifier: Apache-2.0
#include "tools/output.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

std::string textf(const char* format, ...)
{
    char text[512]; // longer than any line of this command but for names, which are not printed so
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string printable(std::string_view text, bool ascii)
{
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || (ascii && byte > 0x7F))
            out += textf("\\x%02x", byte);
        else
            out += c;
    }
    return out;
}

std::string seconds(int64_t ticks)
{
    constexpr uint64_t per_second = 10000000;
    const uint64_t size =
        ticks < 0 ? uint64_t{0} - static_cast<uint64_t>(ticks) : static_cast<uint64_t>(ticks);
    std::string text = textf("%s%llu.%07llu", ticks < 0 ? "-" : "",
                             static_cast<unsigned long long>(size / per_second),
                             static_cast<unsigned long long>(size % per_second));
    for (int spare = 4; spare > 0 && text.back() == '0'; --spare)
        text.pop_back();
    return text;
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

namespace {

[[noreturn]] void output_failed()
{
    throw OutputFailure(EXIT_USAGE, "the results could not be written");
}

} // namespace

void put(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        output_failed();
}

void put_line(const Json& value)
{
    put(value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
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
