// SPDX-License-Identifier: Apache-2.0
#include "tools/script_text.h"

#include "tools/output.h"

#include <cmath>
#include <vector>

using namespace zoflv_inspect;

namespace {

constexpr size_t OFFSET_WIDTH = 12;

int64_t place(const Tag& tag, uint32_t offset)
{
    return tag.body_offset() + int64_t{offset};
}

bool is_text(AmfType type)
{
    return type == AmfType::STRING || type == AmfType::LONG_STRING || type == AmfType::XML_DOCUMENT;
}

bool is_array(AmfType type)
{
    return type == AmfType::ECMA_ARRAY || type == AmfType::STRICT_ARRAY;
}

bool is_container(AmfType type)
{
    return is_array(type) || type == AmfType::OBJECT || type == AmfType::TYPED_OBJECT;
}

void print_number(LineWriter* out, double value)
{
    if (std::isfinite(value))
        out->number(value);
    else
        out->text(std::isnan(value) ? "NaN" : value < 0 ? "-infinity" : "infinity");
}

// What follows the type.
void print_content(LineWriter* out, const ScriptTree& tree, const ScriptNode& node, uint32_t i)
{
    if (is_text(node.type) || node.type == AmfType::TYPED_OBJECT)
        out->text(" \"").text(printable(tree.text(node))).text("\"");
    if (is_container(node.type)) {
        out->text(", ").number(int64_t{node.found}).text(node.found == 1 ? " value" : " values");
        if (is_array(node.type) && node.count != node.found)
            out->text(", claims ").number(int64_t{node.count});
        if (!node.closed)
            out->text(", without its end");
    }
    switch (node.type) {
    case AmfType::NUMBER:
    case AmfType::REFERENCE:
        out->text(" ");
        print_number(out, tree.number(node, i));
        break;
    case AmfType::BOOLEAN:
        out->text(tree.number(node, i) != 0 ? " true" : " false");
        break;
    case AmfType::DATE:
        out->text(" ");
        print_number(out, node.number);
        out->text(" ms since 1970, zone ").number(int64_t{node.zone}).text(" min");
        break;
    case AmfType::AVM_PLUS:
        out->text(", ").number(int64_t{node.text_size}).text(" bytes of AMF3");
        break;
    default:
        break;
    }
}

// The value of a node as JSON, without what is inside.
void write_content(LineWriter* out, const ScriptTree& tree, const ScriptNode& node, uint32_t i)
{
    if (is_text(node.type))
        out->text(",\"value\":").quoted(tree.text(node));
    if (node.type == AmfType::TYPED_OBJECT)
        out->text(",\"class\":").quoted(tree.text(node));
    if (is_array(node.type))
        out->text(",\"count\":").number(int64_t{node.count});
    if (is_container(node.type))
        out->text(",\"found\":")
            .number(int64_t{node.found})
            .text(node.closed ? ",\"closed\":true" : ",\"closed\":false");
    switch (node.type) {
    case AmfType::NUMBER:
    case AmfType::REFERENCE:
    case AmfType::DATE:
        out->text(",\"value\":").number(tree.number(node, i));
        break;
    case AmfType::BOOLEAN:
        out->text(tree.number(node, i) != 0 ? ",\"value\":true" : ",\"value\":false");
        break;
    case AmfType::AVM_PLUS:
        out->text(",\"size\":").number(int64_t{node.text_size});
        break;
    default:
        break;
    }
    if (node.type == AmfType::DATE)
        out->text(",\"zone\":").number(int64_t{node.zone});
}

} // namespace

void print_script(LineWriter* out, const Tag& tag, const ScriptTree& tree)
{
    for (const ScriptNode& node : tree.nodes()) {
        for (uint32_t i = 0; i < node.repeat; ++i) {
            const size_t from = out->mark();
            out->number(place(tag, tree.offset(node, i))).right(from, OFFSET_WIDTH);
            out->column(OFFSET_WIDTH + 4 + size_t{2} * node.depth);
            if (node.has_name)
                out->text(printable(tree.name(node))).text(": ");
            out->text(amf_type_name(node.type));
            print_content(out, tree, node, i);
            out->end_line();
        }
    }
    if (tree.error() == ScriptError::NONE)
        return;
    const size_t from = out->mark();
    out->number(place(tag, tree.error_offset())).right(from, OFFSET_WIDTH);
    out->text("    not read on: ").text(script_error_name(tree.error())).text(", ");
    out->number(static_cast<int64_t>(tree.size() - tree.error_offset())).text(" bytes left");
    out->end_line();
}

void write_script_json(LineWriter* out, const Tag& tag, const ScriptTree& tree)
{
    std::vector<uint32_t> open; // where the arrays of values that are open end
    bool first = true;
    out->text(",\"values\":[");
    const std::vector<ScriptNode>& nodes = tree.nodes();
    const auto close = [&](size_t at) {
        for (; !open.empty() && open.back() == at; open.pop_back(), first = false)
            out->text("]}");
    };
    for (size_t at = 0; at < nodes.size(); ++at) {
        const ScriptNode& node = nodes[at];
        close(at);
        for (uint32_t i = 0; i < node.repeat; ++i, first = false) {
            out->spill();
            out->text(first ? "{\"offset\":" : ",{\"offset\":");
            out->number(place(tag, tree.offset(node, i)));
            if (node.has_name)
                out->text(",\"name\":").quoted(tree.name(node));
            out->text(",\"type\":\"").text(amf_type_name(node.type)).text("\"");
            write_content(out, tree, node, i);
            if (!is_container(node.type))
                out->text("}");
        }
        if (is_container(node.type)) {
            out->text(",\"values\":[");
            open.push_back(node.next);
            first = true;
        }
    }
    close(nodes.size());
    out->text("],\"error\":");
    if (tree.error() == ScriptError::NONE)
        out->text("null");
    else
        out->quoted(script_error_name(tree.error()));
    out->text(",\"error_offset\":");
    if (tree.error() == ScriptError::NONE)
        out->text("null");
    else
        out->number(place(tag, tree.error_offset()));
}
