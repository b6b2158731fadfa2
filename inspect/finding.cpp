// SPDX-License-Identifier: Apache-2.0
#include "inspect/findings.h"

namespace zoflv_inspect {

bool Finding::can_explain(Shown shown, StreamKind of_kind, int64_t before) const
{
    const bool same_kind =
        kind == of_kind || kind == StreamKind::FILE || of_kind == StreamKind::FILE;
    return (explains & shown) != 0 && same_kind && offset <= before;
}

std::string Finding::text() const
{
    std::string text = info().consequence;
    if (!detail.empty())
        text += ": " + detail;
    if (count > 1)
        text += " (" + std::to_string(count) + " times)";
    if (level == Level::ERROR && info().elsewhere)
        text += "; plays elsewhere, not here, because " + std::string(info().elsewhere);
    return text;
}

} // namespace zoflv_inspect
