// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_rules.h"
#include "inspect/reasons.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>

namespace {

std::string document(const std::string& name)
{
    std::ifstream in(ZOFLV_SOURCE_DIR "/docs/" + name);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Documents, OfTheLogIsItsTable)
{
    EXPECT_EQ(document("log.md"), zoflv_inspect::reasons_document())
        << "zoflv reasons > docs/log.md";
}

TEST(Documents, NameFindingsThatThereAre)
{
    const std::regex code("`([a-z0-9]+\\.[a-z0-9_]+)`");
    const std::string text = document("limits.md");
    const std::sregex_iterator codes(text.begin(), text.end(), code);
    EXPECT_GT(std::distance(codes, {}), 40) << "docs/limits.md";
    for (auto at = codes; at != std::sregex_iterator(); ++at)
        EXPECT_TRUE(zoflv_inspect::rule_of((*at)[1].str())) << (*at)[0];
}

} // namespace
