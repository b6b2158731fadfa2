// SPDX-License-Identifier: Apache-2.0
#include "inspect/report_html.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/output_file.h"
#include "tools/progress.h"

#include <cctype>
#include <filesystem>
#include <memory>
#include <new>

namespace {

namespace fs = std::filesystem;
namespace zi = zoflv_inspect;

struct ReportOptions {
    std::vector<std::string> files;
    std::string output;
    bool force = false;
    zi::DeviceOptions device{};
};

void write_page(const std::string& target, bool force, const std::string& page)
{
    OutputFile out(target, force);
    out.write(page);
    out.publish();
}

/// "0012-recording.html": the number keeps names apart, and a link needs no escapes.
std::string page_name(size_t number, const std::string& file)
{
    constexpr size_t longest = 60;
    std::string stem = fs::path(file).stem().string().substr(0, longest);
    for (char& c : stem) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_')
            c = '_';
    }
    return textf("%04zu-", number) + stem + ".html";
}

/// Writes the page of a file, or a folder with a page for each and an index.
class Reporter {
public:
    Reporter(const ReportOptions& options, Session& session)
        : m_options(options), m_session(session), m_plugin(session.plugin())
    {}

    int run()
    {
        std::error_code error;
        const std::string& output = m_options.output;
        if (m_options.files.size() > 1 || fs::is_directory(output, error) ||
            (!output.empty() && output.back() == '/'))
            return write_folder();
        const std::string& file = m_options.files.front();
        attempt(&m_worst, file, [&] {
            if (same_file(file, output))
                throw Failure(EXIT_USAGE, "the output would replace it");
            write_page(output, m_options.force, zi::report_page(look_at(file)));
        });
        return m_worst;
    }

private:
    zi::ReportData look_at(const std::string& file)
    {
        const std::shared_ptr<zoflv_host::DataSource> source = open_source(file);
        Progress progress(file, 0, !m_session.quiet());
        return zi::make_report(*m_plugin, source, file, m_options.device,
                               [&](int64_t done, int64_t) { progress.at(done); });
    }

    int write_folder()
    {
        const std::string& folder = m_options.output;
        if (folder == "-")
            throw SetupFailure(folder, "several pages need a folder: -o FOLDER");
        std::error_code error;
        fs::create_directories(folder, error);
        if (!fs::is_directory(folder))
            throw SetupFailure(folder, "is no folder, and several pages need one");
        attempt(&m_worst, folder, [&] {
            OutputFile index((fs::path(folder) / "index.html").string(), m_options.force);
            std::vector<zi::ReportRow> rows;
            for (const std::string& file : m_options.files)
                rows.push_back(report(file, page_name(rows.size() + 1, file)));
            index.write(zi::index_page(rows));
            index.publish();
        });
        return m_worst;
    }

    /// Writes a file's page; the row of one that cannot be read says why.
    zi::ReportRow report(const std::string& file, const std::string& page)
    {
        zi::ReportRow row{file, "", "failed", "", {}};
        attempt(&m_worst, file, [&] {
            try {
                const zi::ReportData data = look_at(file);
                write_page((fs::path(m_options.output) / page).string(), m_options.force,
                           zi::report_page(data));
                row = zi::row_of(data, page);
            } catch (const Failure& failure) {
                row.text = failure.what();
                throw;
            }
        });
        return row;
    }

    const ReportOptions& m_options;
    Session& m_session;
    const PluginPtr m_plugin;
    int m_worst = EXIT_FINE;
};

} // namespace

Command add_report(CLI::App& app)
{
    constexpr Help help = {
        "A page to look at and to send on: verdict, findings, pictures",
        "  zoflv report -o report.html recording.flv\n"
        "  zoflv report -o reports/ *.flv            a page for each, and index.html\n"
        "  zoflv report -o - recording.flv >report.html",
        "The page is one HTML file that needs no network and no script. With several files, or\n"
        "when the output is a folder, index.html there has a row for each file with a link to its\n"
        "page. Existing pages are not replaced without --force. The verdict is that of check.",
        "0 the pages are written, whatever the verdict; 2 wrong usage, or a file, the plugin or\n"
        "the output cannot be opened or written",
    };
    const auto options = std::make_shared<ReportOptions>();
    CLI::App* command = add_command(app, "report", help);
    add_files(command, &options->files);
    command
        ->add_option("-o,--output", options->output,
                     "The page to write, \"-\" for stdout, or a folder")
        ->required()
        ->type_name("FILE");
    add_number(command, "--seeks", &options->device.seeks,
               "Seeks to try: 32 if not given, 0 for none");
    command->add_flag("--force", options->force, "Replace pages that exist");
    return {command, [options](Session& session) {
                options->device.profile = session.device();
                return Reporter(*options, session).run();
            }};
}
