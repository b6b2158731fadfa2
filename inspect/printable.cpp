// SPDX-License-Identifier: Apache-2.0
#include "inspect/printable.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace zoflv_inspect {

namespace {

constexpr char hex_digits[] = "0123456789abcdef";

/// A character in UTF-8.
struct Character {
    uint32_t code = 0;
    size_t size = 0; ///< bytes; 0: they are no UTF-8
};

Character character_at(std::string_view text)
{
    constexpr struct {
        uint8_t mask, lead;
        uint32_t least; ///< a smaller code has a shorter form
    } forms[] = {{0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    const auto first = static_cast<uint8_t>(text[0]);
    for (size_t more = 0; more < std::size(forms); ++more) {
        if ((first & forms[more].mask) != forms[more].lead)
            continue;
        uint32_t code = first & static_cast<uint8_t>(~forms[more].mask);
        if (text.size() <= more)
            return {};
        for (size_t i = 1; i <= more; ++i) {
            const auto byte = static_cast<uint8_t>(text[i]);
            if ((byte & 0xC0) != 0x80)
                return {};
            code = code << 6 | (byte & 0x3F);
        }
        const bool good =
            code >= forms[more].least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        return good ? Character{code, more + 1} : Character{};
    }
    return {};
}

/// What a terminal would obey: controls of both sets, line and paragraph separators, and marks that
/// turn the direction of writing, so that text reads as what it is not.
bool is_control(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

std::string printable(std::string_view text, bool ascii)
{
    std::string out;
    while (!text.empty()) {
        const Character character = character_at(text);
        const size_t size = character.size > 0 ? character.size : 1;
        if (character.size > 0 && !is_control(character.code) && !(ascii && size > 1)) {
            out += text.substr(0, size);
        } else {
            for (size_t i = 0; i < size; ++i) {
                const auto byte = static_cast<uint8_t>(text[i]);
                out += {'\\', 'x', hex_digits[byte >> 4], hex_digits[byte & 15]};
            }
        }
        text.remove_prefix(size);
    }
    return out;
}

} // namespace zoflv_inspect
