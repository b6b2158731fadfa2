// SPDX-License-Identifier: Apache-2.0
#include "inspect/reasons.h"
#include "tools/commands.h"

#include <algorithm>
#include <memory>

namespace {

using zoflv_inspect::Reason;

/// @param wanted  "720", or "zoflv/dmx/zoflvd: 720" with or without brackets and blanks
void print_check(const std::string& wanted)
{
    const size_t colon = wanted.rfind(':');
    std::string source = wanted.substr(0, colon == std::string::npos ? 0 : colon);
    std::string number = wanted.substr(colon == std::string::npos ? 0 : colon + 1);
    source.erase(0, source.rfind('[') + 1);
    number.erase(
        std::remove_if(number.begin(), number.end(), [](char c) { return c == ' ' || c == ']'; }),
        number.end());
    bool found = false;
    for (const Reason& reason : zoflv_inspect::reasons()) {
        if (reason.check == 0 || number != std::to_string(reason.check) ||
            (!source.empty() && source != reason.source))
            continue;
        put(reason_name(reason) + "  " + reason_kind_name(reason.kind) + ": " + reason.text + '\n');
        found = true;
    }
    if (!found)
        throw Failure(EXIT_USAGE, "is no check; `zoflv reasons` lists them");
}

} // namespace

Command add_reasons(CLI::App& app)
{
    constexpr Help help = {
        "What the lines of the log mean, by the number of their check",
        "  zoflv reasons 720                     in every source that has it\n"
        "  zoflv reasons zoflv/dmx/zoflvd:720\n"
        "  zoflv reasons > log.md                all of them",
        "A line \"assert!, [zoflv/dmx/zoflvd: 720]\" names check 720 of zoflv/dmx/zoflvd.",
        "0 fine; 2 there is no such check",
    };
    const auto checks = std::make_shared<std::vector<std::string>>();
    CLI::App* command = add_command(app, "reasons", help);
    command->add_option("CHECK", *checks, "A number, or source and number; all when none is given");
    return {command, [checks](Session&) {
                int worst = EXIT_FINE;
                if (checks->empty())
                    put(zoflv_inspect::reasons_document());
                for (const std::string& check : *checks)
                    attempt(&worst, check, [&] { print_check(check); });
                return worst;
            }};
}
