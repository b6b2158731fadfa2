// SPDX-License-Identifier: Apache-2.0
#include "inspect/findings.h"
#include "inspect/words.h"

namespace zoflv_inspect {

bool Finding::can_explain(Shown shown, StreamKind of_kind, int64_t before) const
{
    const bool same_kind =
        kind == of_kind || kind == StreamKind::FILE || of_kind == StreamKind::FILE;
    return (explains & shown) != 0 && same_kind && offset <= before;
}

std::string Finding::first() const
{
    const std::string text = info().consequence;
    return detail.empty() ? text : text + ": " + detail;
}

std::string Finding::text() const
{
    return count > 1 ? first() + " (" + counted(count, "time") + ')' : first();
}

} // namespace zoflv_inspect
