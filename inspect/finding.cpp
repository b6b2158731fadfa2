// SPDX-License-Identifier: Apache-2.0
#include "inspect/findings.h"
#include "inspect/words.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace zoflv_inspect {

namespace {

/// Which stream it is about; empty of one about the file, and where the rule says so.
std::string stream_note(const Finding& finding)
{
    constexpr std::string_view of_one_stream[] = {"audio", "aac", "mp3", "video", "avc"};
    const std::string_view code = finding.code();
    const bool told = std::find(std::begin(of_one_stream), std::end(of_one_stream),
                                code.substr(0, code.find('.'))) != std::end(of_one_stream);
    if (told || finding.kind == StreamKind::FILE)
        return {};
    return finding.kind == StreamKind::AUDIO ? "audio" : "video";
}

} // namespace

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
    std::string note = stream_note(*this);
    if (count > 1)
        note += (note.empty() ? "" : ", ") + counted(count, "time");
    return note.empty() ? first() : first() + " (" + note + ')';
}

} // namespace zoflv_inspect
