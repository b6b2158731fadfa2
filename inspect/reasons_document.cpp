// SPDX-License-Identifier: Apache-2.0
#include "inspect/reasons.h"

namespace zoflv_inspect {

std::string reason_name(const Reason& reason)
{
    const std::string source = reason.source;
    return reason.check ? "[" + source + ": " + std::to_string(reason.check) + "]"
                        : source + ": " + reason.message;
}

std::string reasons_document()
{
    std::string text =
        "# Log lines\n\n"
        "What each line of the log says, by the name of its check, `assert!, [SOURCE: NUMBER]`, or "
        "by how it\nbegins. Kinds: damage (the file's content is wrong or cut), end (there is no "
        "more, or it is not there),\nlimit (more or other than is read), storage (the file cannot "
        "be read), memory, misuse (a caller's\nmistake). A line in brackets is a caller's that "
        "gives up: the lines before it tell why.\n\n"
        "This page is the output of `zoflv reasons`.\n";
    std::string source;
    for (const Reason& reason : reasons()) {
        if (source != reason.source) {
            source = reason.source;
            text += "\n## " + source + "\n\n| " + (reason.check ? "Check" : "Line") +
                    " | Kind | Meaning |\n|---|---|---|\n";
        }
        const bool echo = reason.rank == ReasonRank::ECHO;
        const std::string name =
            reason.check ? std::to_string(reason.check) : "`" + std::string(reason.message) + "`";
        text += "| " + name + " | " + reason_kind_name(reason.kind) + " | " + (echo ? "(" : "") +
                reason.text + (echo ? ")" : "") + " |\n";
    }
    return text;
}

} // namespace zoflv_inspect
