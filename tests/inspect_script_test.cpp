// SPDX-License-Identifier: Apache-2.0
// Script data of every type, whole and broken, and what it may cost.
#include "inspect/script.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace zoflv_inspect;

namespace {

std::string node_text(const ScriptTree& tree, const ScriptNode& n)
{
    std::string text = std::to_string(n.offset) + "-" + std::to_string(n.end) + " ";
    text += n.has_name ? std::string(tree.name(n)) + "=" : "";
    text += amf_type_name(n.type);
    text += n.repeat > 1 ? "*" + std::to_string(n.repeat) : "";
    text += n.text_size > 0 ? "'" + std::string(tree.text(n)) + "'" : "";
    text += n.count > 0 || n.found > 0
                ? "[" + std::to_string(n.count) + "/" + std::to_string(n.found) + "]"
                : "";
    const bool holds = n.type == AmfType::OBJECT || n.type == AmfType::TYPED_OBJECT ||
                       n.type == AmfType::ECMA_ARRAY || n.type == AmfType::STRICT_ARRAY;
    text += holds && !n.closed ? "open" : "";
    return text + (n.number != 0 ? " " + std::to_string(static_cast<int>(n.number)) : "");
}

// Nodes separated by "; ", each with a > for each level, and the error.
std::string tree_text(const Bytes& body)
{
    const ScriptTree tree(body.data(), body.size());
    std::string text;
    for (const ScriptNode& n : tree.nodes())
        text +=
            std::string(text.empty() ? "" : "; ") + std::string(n.depth, '>') + node_text(tree, n);
    if (tree.error() != ScriptError::NONE)
        text += "; " + std::string(script_error_name(tree.error())) + " at " +
                std::to_string(tree.error_offset());
    return text;
}

TEST(InspectScript, ReadsEveryType)
{
    const Bytes end = hex("00 00 09");
    const Bytes prop = amf_prop("a", amf_bool(true));
    const struct {
        Bytes body;
        const char* text;
    } cases[] = {
        {{}, ""},
        {cat({amf_str("on"), amf_num(7)}), "0-5 string'on'; 5-14 number 7"},
        {cat({{3}, prop, end}), "0-9 object[0/1]; >4-6 a=boolean 1"},
        {cat({{8}, be(1, 4), prop, end}), "0-13 ECMA array[1/1]; >8-10 a=boolean 1"},
        {cat({{8}, be(9, 4), prop, end}), "0-13 ECMA array[9/1]; >8-10 a=boolean 1"},
        {cat({{8}, be(0, 4), prop, end}), "0-13 ECMA array[0/1]; >8-10 a=boolean 1"},
        {cat({{8}, be(1, 4), prop}), "0-10 ECMA array[1/1]open; >8-10 a=boolean 1; "
                                     "ends too early at 10"},
        {cat({{16}, be(1, 2), {'C'}, prop, end}), "0-12 typed object'C'[0/1]; >7-9 a=boolean 1"},
        {cat({{3}, amf_prop("", amf_num(1)), end}), "0-15 object[0/1]; >3-12 =number 1"},
        {amf_array({3, 4, 5}), "0-32 strict array[3/3]; >5-32 number*3 3"},
        {cat({{10}, be(3, 4), {5, 5, 6}}), "0-8 strict array[3/3]; >5-7 null*2; >7-8 undefined"},
        {cat({{10}, be(2, 4), amf_array({}), amf_array({})}),
         "0-15 strict array[2/2]; >5-10 strict array; >10-15 strict array"},
        {cat({{10}, be(0xFFFFFFFF, 4), {5, 5}}),
         "0-7 strict array[4294967295/2]open; >5-7 null*2; ends too early at 7"},
        {cat({{11}, be(0x4000000000000000, 8), be(0xFFC4, 2)}), "0-11 date 2"},
        {cat({{12}, be(2, 4), ascii("ab")}), "0-7 long string'ab'"},
        {cat({{15}, be(3, 4), ascii("<a>")}), "0-8 XML document'<a>'"},
        {hex("04 05 06 07 00 07 0D 0E"),
         "0-1 movieclip; 1-2 null; 2-3 undefined; 3-6 reference 7; 6-7 unsupported; 7-8 recordset"},
        {hex("11 61 62"), "0-3 AVM+ switch'ab'"},
        {cat({amf_num(1), end}), "0-9 number 1; 11-12 object end"},
        {hex("12"), "; unknown type marker at 0"},
        {cat({amf_num(1), hex("02 00 05 61")}), "0-9 number 1; ends too early at 9"},
        {cat({{3}, hex("00 05 61")}), "0-1 objectopen; ends too early at 1"},
        {cat({{3}, hex("00 01 61")}), "0-1 objectopen; ends too early at 1"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tree_text(c.body), c.text);
}

TEST(InspectScript, FindsPropertiesAndNumbers)
{
    const Bytes body =
        cat({amf_str("onMetaData"),
             amf_ecma(3, {amf_prop("a", amf_object({amf_prop("b", amf_num(1))})),
                          amf_prop("b", amf_num(NAN)), amf_keyframes({0, 1.5}, {13, 500}),
                          amf_prop("b", amf_num(3))})});
    const ScriptTree tree(body.data(), body.size());
    const ScriptNode* meta = tree.top(1);
    ASSERT_TRUE(meta);
    EXPECT_EQ(tree.text(*tree.top(0)), "onMetaData");
    EXPECT_FALSE(tree.top(2));
    EXPECT_EQ(meta->found, 4U);
    ASSERT_TRUE(tree.property(*meta, "b"));
    EXPECT_EQ(tree.property(*meta, "b")->number, 3); // not the inner one, and the last
    EXPECT_FALSE(tree.property(*meta, "c"));
    const ScriptNode* index = tree.property(*meta, "keyframes");
    ASSERT_TRUE(index);
    EXPECT_EQ(tree.numbers(*tree.property(*index, "times")), (std::vector<double>{0, 1.5}));
    const ScriptNode* run = tree.first_inside(*tree.property(*index, "filepositions"));
    EXPECT_EQ(tree.number(*run, 1), 500);
    EXPECT_EQ(tree.offset(*run, 1), run->offset + 9);
}

TEST(InspectScript, CostsNoMoreThanItHolds)
{
    const auto nodes = [](const Bytes& body, ScriptError error) {
        const ScriptTree tree(body.data(), body.size());
        EXPECT_EQ(tree.error(), error);
        return tree.nodes().size();
    };
    Bytes deep, wide;
    for (int i = 0; i < 100000; ++i) {
        const Bytes open = hex("0A 00 00 00 01");
        deep.insert(deep.end(), open.begin(), open.end());
        wide.insert(wide.end(), {5, 6}); // not one node
    }
    EXPECT_EQ(nodes(deep, ScriptError::TOO_DEEP), size_t{ScriptTree::MAX_DEPTH});
    EXPECT_LT(nodes(wide, ScriptError::TOO_MANY), wide.size() / 4);
    EXPECT_EQ(nodes(amf_array(std::vector<double>(100000, 1.0)), ScriptError::NONE), 2U);
}

} // namespace
