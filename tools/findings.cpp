// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_rules.h"
#include "tools/commands.h"

#include <memory>

using zoflv_inspect::finding_text;
using zoflv_inspect::FindingRule;

namespace {

void print_rule(const std::string& code)
{
    const FindingRule* rule = zoflv_inspect::rule_of(code);
    if (!rule)
        throw Failure(EXIT_USAGE, "is no code of a finding; `zoflv findings` lists them");
    put(finding_text(*rule));
}

} // namespace

Command add_findings(CLI::App& app)
{
    constexpr Help help = {
        "What the codes of findings mean: consequence and remedy",
        "  zoflv findings index.none duration.short\n"
        "  zoflv findings > findings.md          all of them",
        "",
        "0 fine; 2 there is no such code",
    };
    const auto codes = std::make_shared<std::vector<std::string>>();
    CLI::App* command = add_command(app, "findings", help);
    command->add_option("CODE", *codes, "As `zoflv check` prints it; all codes when none is given");
    return {command, [codes](Session&) {
                int worst = EXIT_FINE;
                if (codes->empty())
                    put(zoflv_inspect::findings_document());
                for (const std::string& code : *codes)
                    attempt(&worst, code, [&] { print_rule(code); });
                return worst;
            }};
}
