// SPDX-License-Identifier: Apache-2.0
#include "tools/properties.h"

#include <cmath>
#include <ctime>

using zoflv_inspect::AmfType;
using zoflv_inspect::ScriptNode;
using zoflv_inspect::ScriptTree;

namespace {

/// An object takes a name in time that grows with their number, and a screen is small.
constexpr size_t most_values = 4096;

Json number_json(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

/// ISO 8601 in UTC; null outside the years 1 to 9999.
Json date_json(double ms)
{
    constexpr double first = -62135596800e3, after_last = 253402300800e3;
    if (!(ms >= first && ms < after_last))
        return nullptr;
    const auto whole = static_cast<time_t>(std::floor(ms / 1000));
    std::tm parts = {};
    gmtime_r(&whole, &parts);
    return textf("%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                 parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

/// Depth is bounded by the tree's.
class Converter {
public:
    explicit Converter(const ScriptTree& tree) : m_tree(tree) {}

    size_t left_out() const { return m_left_out; }

    Json members(const ScriptNode& outer, bool keyframes)
    {
        Json object = Json::object();
        for (const ScriptNode* node = m_tree.first_inside(outer); node;
             node = m_tree.next_inside(outer, *node)) {
            const std::string name(m_tree.name(*node));
            if (keyframes && (name == "times" || name == "filepositions"))
                continue;
            if (take())
                object[name] = value(*node, 0, !keyframes && name == "keyframes");
        }
        return object;
    }

private:
    /// Counts a value; false when it is one too many.
    bool take()
    {
        if (m_taken < most_values)
            return ++m_taken > 0;
        ++m_left_out;
        return false;
    }

    Json elements(const ScriptNode& outer)
    {
        Json array = Json::array();
        for (const ScriptNode* node = m_tree.first_inside(outer); node;
             node = m_tree.next_inside(outer, *node)) {
            for (uint32_t i = 0; i < node->repeat; ++i) {
                if (take()) {
                    array.push_back(value(*node, i, false));
                } else {
                    m_left_out += node->repeat - i - 1;
                    break;
                }
            }
        }
        return array;
    }

    Json value(const ScriptNode& node, uint32_t i, bool keyframes)
    {
        switch (node.type) {
        case AmfType::NUMBER:
        case AmfType::REFERENCE:
            return number_json(m_tree.number(node, i));
        case AmfType::BOOLEAN:
            return m_tree.number(node, i) != 0;
        case AmfType::STRING:
        case AmfType::LONG_STRING:
        case AmfType::XML_DOCUMENT:
            return std::string(m_tree.text(node));
        case AmfType::OBJECT:
        case AmfType::ECMA_ARRAY:
        case AmfType::TYPED_OBJECT:
            return members(node, keyframes);
        case AmfType::STRICT_ARRAY:
            return elements(node);
        case AmfType::DATE:
            return date_json(node.number);
        default:
            return nullptr;
        }
    }

    const ScriptTree& m_tree;
    size_t m_taken = 0, m_left_out = 0;
};

} // namespace

Json properties_json(const zoflv_inspect::Head& head, size_t* left_out)
{
    *left_out = 0;
    const ScriptNode* const object = zoflv_inspect::metadata_properties(head);
    if (!object)
        return nullptr;
    Converter converter(head.metadata);
    Json properties = converter.members(*object, false);
    *left_out = converter.left_out();
    return properties;
}
