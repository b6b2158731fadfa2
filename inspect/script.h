// SPDX-License-Identifier: Apache-2.0
/// @file
/// Script data (AMF0) as a tree: every value of a script tag's body with its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zoflv_inspect {

/// Type markers.
enum class AmfType : uint8_t {
    NUMBER = 0,
    BOOLEAN = 1,
    STRING = 2,
    OBJECT = 3,
    MOVIECLIP = 4, ///< reserved, without content
    NULL_VALUE = 5,
    UNDEFINED = 6,
    REFERENCE = 7,
    ECMA_ARRAY = 8,
    OBJECT_END = 9,
    STRICT_ARRAY = 10,
    DATE = 11,
    LONG_STRING = 12,
    UNSUPPORTED = 13,
    RECORDSET = 14, ///< reserved, without content
    XML_DOCUMENT = 15,
    TYPED_OBJECT = 16,
    AVM_PLUS = 17, ///< the rest of the body is AMF3, which is not read
};

/// "number", "ECMA array" and the like.
const char* amf_type_name(AmfType type);

/// Why reading ended before the end of the body.
enum class ScriptError : uint8_t {
    NONE,
    TRUNCATED,      ///< a value, or the end of an object, lies past the end of the body
    UNKNOWN_MARKER, ///< no AMF0 type
    TOO_DEEP,       ///< values inside each other, MAX_DEPTH deep
    TOO_MANY,       ///< more values than a body of this size can sensibly have
};

/// One value, or several of one type and size that follow each other in a strict array. Positions
/// count bytes of the body.
struct ScriptNode {
    AmfType type = AmfType::NULL_VALUE;
    bool has_name = false; ///< a property of an object or ECMA array
    bool closed = false;   ///< arrays and objects: all there, with the end marker if one belongs
    uint8_t depth = 0;     ///< 0: not inside another value
    uint32_t offset = 0;   ///< of the type marker
    uint32_t end = 0;      ///< after the value, its content and its end marker
    uint32_t next = 0;     ///< index of the first node that is not inside this one
    uint32_t repeat = 1;   ///< values that this node stands for
    uint32_t name_offset = 0;
    uint32_t name_size = 0;
    uint32_t text_offset = 0; ///< strings: their bytes; typed objects: the class
    uint32_t text_size = 0;
    uint32_t count = 0;  ///< ECMA and strict arrays: the number of values they claim
    uint32_t found = 0;  ///< arrays and objects: the number of values in them
    int16_t zone = 0;    ///< dates: minutes from UTC
    double number = 0.0; ///< numbers, booleans, references, dates (ms since 1970): the first one
};

/// The tree, flat: a node's content follows it. Memory is bounded by the body's size whatever the
/// body claims; nothing recurses.
class ScriptTree {
public:
    static constexpr int MAX_DEPTH = 64;

    ScriptTree() = default;
    /// Reads the body of a script tag, as far as it can be read. Copies it.
    ScriptTree(const uint8_t* body, size_t size);

    const std::vector<ScriptNode>& nodes() const { return m_nodes; }
    ScriptError error() const { return m_error; }
    /// Where reading ended: the body's size when all was read.
    uint32_t error_offset() const { return m_error_offset; }
    size_t size() const { return m_body.size(); } ///< of the body

    std::string_view name(const ScriptNode& node) const
    {
        return view(node.name_offset, node.name_size);
    }
    std::string_view text(const ScriptNode& node) const
    {
        return view(node.text_offset, node.text_size);
    }
    /// The value numbered `i` of a node that stands for several.
    uint32_t offset(const ScriptNode& node, uint32_t i) const;
    double number(const ScriptNode& node, uint32_t i) const;

    /// The n-th value that is not inside another, null when there are not so many. The first is
    /// mostly the name of an event, the second what it carries.
    const ScriptNode* top(size_t n) const;
    /// The last property of that name, which is the one that counts; null when there is none.
    const ScriptNode* property(const ScriptNode& object, std::string_view name) const;
    /// The nodes directly inside another: first_inside(), then next_inside() until null.
    const ScriptNode* first_inside(const ScriptNode& node) const;
    const ScriptNode* next_inside(const ScriptNode& outer, const ScriptNode& node) const;
    /// The numbers directly inside an array or object, in order; other values are left out.
    std::vector<double> numbers(const ScriptNode& array) const;

private:
    class Reader;

    std::string_view view(uint32_t offset, uint32_t size) const
    {
        return {reinterpret_cast<const char*>(m_body.data()) + offset, size};
    }
    size_t index(const ScriptNode& node) const
    {
        return static_cast<size_t>(&node - m_nodes.data());
    }

    std::vector<uint8_t> m_body;
    std::vector<ScriptNode> m_nodes;
    ScriptError m_error = ScriptError::NONE;
    uint32_t m_error_offset = 0;
};

/// What a script error means, in a few words.
const char* script_error_name(ScriptError error);

} // namespace zoflv_inspect
