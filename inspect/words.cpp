// SPDX-License-Identifier: Apache-2.0
#include "inspect/words.h"

namespace zoflv_inspect {

std::string grouped(int64_t number)
{
    std::string digits = std::to_string(number);
    for (auto at = static_cast<int>(digits.size()) - 3; at > (number < 0 ? 1 : 0); at -= 3)
        digits.insert(static_cast<size_t>(at), 1, ',');
    return digits;
}

std::string counted(uint64_t count, const char* noun)
{
    return grouped(static_cast<int64_t>(count)) + ' ' + noun + (count == 1 ? "" : "s");
}

} // namespace zoflv_inspect
