// SPDX-License-Identifier: Apache-2.0
#include "tools/command.h"

#include <algorithm>
#include <filesystem>

namespace {

/// A description is the brief line and, after an empty one, the examples.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_description(const CLI::App* app) const override
    {
        return app->get_description() + "\n\n";
    }
    std::string make_subcommand(const CLI::App* sub) const override
    {
        const std::string text = sub->get_description();
        std::string line = "  " + sub->get_name();
        line.resize(std::max<size_t>(line.size() + 2, 14), ' ');
        return line + text.substr(0, text.find('\n')) + '\n';
    }
    // What is required the usage shows; what goes together the text says.
    std::string make_option_opts(const CLI::Option* option) const override
    {
        std::string text = option->get_type_size() == 0 || option->get_type_name().empty()
                               ? std::string()
                               : ' ' + option->get_type_name();
        if (!option->get_default_str().empty())
            text += " (" + option->get_default_str() + ')';
        return text;
    }
};

bool exists(const std::string& path)
{
    std::error_code error;
    return std::filesystem::exists(path, error);
}

bool is_negative_number(const std::string& text)
{
    return text.size() > 1 && text[0] == '-' && (std::isdigit(text[1]) || text[1] == '.');
}

/// The first word that is neither an option nor its value; null when there is none.
const std::string* first_argument(const std::vector<std::string>& words)
{
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--plugin" || words[i] == "--device")
            ++i;
        else if (words[i][0] != '-')
            return &words[i];
    }
    return nullptr;
}

/// What is not known to the parser: its own words are "The following argument was not expected".
std::string unexpected(const std::string& word, const std::string& name)
{
    if (is_negative_number(word))
        return word + ": a negative number is not taken here";
    if (word[0] == '-')
        return "no option " + word + " (" + name + " --help lists them)";
    return "\"" + word + "\" is one too many (" + name + " --help shows the usage)";
}

} // namespace

std::shared_ptr<CLI::FormatterBase> help_formatter()
{
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(26);
    formatter->label("OPTIONS", "OPTION...");
    formatter->label("SUBCOMMAND", "COMMAND");
    formatter->label("Positionals", "Arguments");
    return formatter;
}

void set_help(CLI::App& app, const Help& help)
{
    app.description(std::string(help.brief) + "\n\nExamples:\n" + help.examples);
    const std::string notes = help.notes[0] ? std::string(help.notes) + "\n\n" : std::string();
    app.footer(notes + "Exit codes: " + help.exit_codes + '.');
}

CLI::App* add_command(CLI::App& app, const char* name, const Help& help)
{
    CLI::App* command = app.add_subcommand(name);
    command->group("Commands");
    set_help(*command, help);
    command->footer(
        command->get_footer() +
        "\n\nAll commands take --device, --plugin, --quiet and --verbose (zoflv --help).");
    return command;
}

CLI::Option* add_file(CLI::App* command, std::string* file)
{
    return command->add_option("FILE", *file, "FLV file")->required()->type_name("");
}

CLI::Option* add_files(CLI::App* command, std::vector<std::string>* files)
{
    return command->add_option("FILE", *files, "FLV file")->required()->type_name("");
}

CLI::Option* add_json(CLI::App* command, bool* json)
{
    return command->add_flag("--json", *json, "One JSON object a line");
}

CLI::Option* add_choice(CLI::App* command, const char* name, std::string* choice, const char* help,
                        const std::vector<std::string>& choices)
{
    std::string list;
    for (const std::string& one : choices)
        list += (list.empty() ? "" : one == choices.back() ? " or " : ", ") + one;
    const auto check = [choices, list](const std::string& text) {
        const bool known = std::find(choices.begin(), choices.end(), text) != choices.end();
        return known ? std::string() : list + " is needed, not \"" + text + '"';
    };
    return command->add_option(name, *choice, help + (": " + list))
        ->check(check)
        ->capture_default_str()
        ->type_name("WORD");
}

CLI::Option* add_number(CLI::App* command, const char* name, int* number, const char* help)
{
    constexpr size_t most_digits = 9; // each such number is an int
    return command->add_option(name, *number, help)
        ->check([](const std::string& text) {
            const bool good = !text.empty() && text.size() <= most_digits &&
                              text.find_first_not_of("0123456789") == std::string::npos;
            return good ? std::string()
                        : "a whole number from 0 on is needed, not \"" + text + "\"";
        })
        ->type_name("N");
}

std::string usage_message(const CLI::App& app, int argc, const char* const* argv,
                          const CLI::ParseError& error)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    for (const std::string& word : words) {
        if (word.size() > 1 && word[0] == '-' && exists(word))
            return word + " is taken for an option: a file of that name is ./" + word;
    }
    const std::vector<CLI::App*> commands = app.get_subcommands();
    if (commands.empty()) {
        const std::string* const first = first_argument(words);
        if (!first)
            return "no command: \"zoflv info FILE\" shows a file, --help lists the commands";
        if (exists(*first))
            return "no command: did you mean \"zoflv info " + *first +
                   "\"? (--help lists the others)";
        return "no command \"" + *first + "\" (--help lists them)";
    }
    const std::string name = "zoflv " + commands.front()->get_name();
    for (size_t i = 1; i < words.size(); ++i) {
        if (is_negative_number(words[i]) && words[i - 1].compare(0, 2, "--") == 0)
            return words[i - 1] + ": a number from 0 on is needed, not \"" + words[i] + "\"";
    }
    const bool option_last = !words.empty() && words.back().compare(0, 1, "-") == 0;
    if (option_last && error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ArgumentMismatch))
        return words.back() + " needs a value (" + name + " --help shows the usage)";
    const std::vector<std::string> rest = app.remaining(true);
    if (!rest.empty())
        return unexpected(rest.front(), name);
    return std::string(error.what()) + " (" + name + " --help shows the usage)";
}
