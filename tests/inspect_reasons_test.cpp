// SPDX-License-Identifier: Apache-2.0
#include "inspect/reasons.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zoflv_inspect;
using Check = std::pair<std::string, int>; // source and number

/// The lines that a command prints, run in the project's folder.
std::vector<std::string> lines_of(const char* command)
{
    const std::string in_folder = std::string("cd '" ZOFLV_SOURCE_DIR "' && ") + command;
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(in_folder.c_str(), "r"), ::pclose);
    std::vector<std::string> lines;
    char line[1000];
    while (output && std::fgets(line, sizeof line, output.get()))
        lines.emplace_back(line, std::strcspn(line, "\n"));
    return lines;
}

TEST(Reasons, EachCheckOfTheSourcesHasOneRow)
{
    std::set<Check> rows;
    for (const Reason& row : reasons()) {
        if (row.check != 0) {
            EXPECT_TRUE(rows.emplace(row.source, row.check).second) << row.source << row.check;
        }
    }
    // As the script finds them that keeps the numbers apart.
    std::set<Check> checks;
    for (const std::string& line : lines_of("perl .ci/check-numbers --list")) {
        const size_t space = line.find(' ');
        checks.emplace(line.substr(0, space), std::atoi(&line[space]));
    }
    EXPECT_GT(checks.size(), 100u);
    EXPECT_EQ(rows, checks);
}

TEST(Reasons, EachErrorOfTheSourcesIsKnownByItsText)
{
    // Up to the first value that is filled in; check lines are known by their numbers.
    const std::vector<std::string> lines = lines_of(
        R"perl(perl -0777 -ne 'while (/(?:log_error\(|LOG_ERROR,\s*(?:\w+|"\w+"),\s*)"((?:[^"\\]|\\.)*)"/g)
            { my $t = $1; $t =~ s/\\(.)/$1/g; $t =~ s/%.*//s;
              print qq($t\n) if $t =~ /./ && $t !~ /^(assert|malloc failed)!/ }' zoflv/dmx/*.cpp)perl");
    EXPECT_GT(lines.size(), 30u);
    for (const std::string& line : lines) {
        bool known = false;
        for (const Reason& row : reasons())
            known = known || (row.message && line.rfind(row.message, 0) == 0);
        EXPECT_TRUE(known) << line;
    }
}

struct Line {
    bool error;
    const char *tag, *text;
};

TEST(Reasons, TheLineThatTellsMostIsTheCause)
{
    const char* const frame_cut = "assert!, [zoflv/dmx/zoflvd: 691]";
    const char* const frame_failed = "assert!, [zoflv/dmx/zoflvd: 1146]";
    const struct {
        const char* name;
        std::vector<Line> before, now;
        const char* cause;
        bool empty_avc_tag;
        int plugin_code;
    } cases[] = {
        {"nothing", {}, {}, "", false, 0},
        {"a cause before its echo",
         {},
         {{true, "zoflvd", frame_cut}, {true, "zoflvd", frame_failed}},
         "the file ends within an AVC frame",
         false,
         0},
        {"a detail gives way",
         {},
         {{true, "zoflvd_rdbuf", "assert!, [zoflv/dmx/zoflvd_rdbuf: 217]"},
          {true, "zoflvd_sh", "assert!, [zoflv/dmx/zoflvd_sh: 3104]"}},
         "an AVC parameter set is cut",
         false,
         0},
        {"what the look ahead met counts",
         {{true, "zoflvd", "read size error."}},
         {{true, "zoflvd", frame_cut}},
         "the file is shorter than an FLV header",
         false,
         0},
        {"but not a detail of it",
         {{true, "zoflvd_rdbuf", "zoflvd_rdbuf_init() failed"}},
         {{true, "zoflvd", frame_cut}},
         "the file ends within an AVC frame",
         false,
         0},
        {"an AVC tag without payload",
         {},
         {{true, "zoflvd", "assert!, [zoflv/dmx/zoflvd: 982]"}, {true, "zoflvd", frame_failed}},
         "an AVC tag without payload ends the stream here",
         true,
         0},
        {"the plugin's code",
         {},
         {{false, "ZoFLVExtractor", "zoflvds_get_frm [mCurrtime = 5] ZOFLV_OK != retval : -4"}},
         "",
         false,
         -4},
        {"a version filled in, and a line end",
         {},
         {{true, "zoflvd", "ERR: wrong file format version (7), exit.\n"}},
         "its FLV version is not 1",
         false,
         0},
        {"a fatal check of the plugin",
         {},
         {{true, "ZoFLVExtractor", "libextractor/zoflv_extractor:997 CHECK(mStarted) failed."}},
         "a track was used out of order",
         false,
         0},
        {"an unknown line", {}, {{true, "device", "no decoder [x]"}}, "no decoder [x]", false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ReasonLog log;
        for (const Line& line : c.before)
            log.take(line.error, line.tag, line.text);
        log.step();
        for (const Line& line : c.now)
            log.take(line.error, line.tag, line.text);
        EXPECT_EQ(log.cause_text(), c.cause);
        EXPECT_EQ(log.empty_avc_tag(), c.empty_avc_tag);
        EXPECT_EQ(log.plugin_code(), c.plugin_code);
    }
}

} // namespace
