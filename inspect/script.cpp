// SPDX-License-Identifier: Apache-2.0
#include "inspect/script.h"

#include <cstring>
#include <iterator>

namespace zoflv_inspect {

namespace {

constexpr const char* TYPE_NAMES[] = {
    "number",      "boolean",     "string",     "object",       "movieclip",    "null",
    "undefined",   "reference",   "ECMA array", "object end",   "strict array", "date",
    "long string", "unsupported", "recordset",  "XML document", "typed object", "AVM+ switch",
};
static_assert(std::size(TYPE_NAMES) == static_cast<size_t>(AmfType::AVM_PLUS) + 1, "one per type");

constexpr const char* ERROR_NAMES[] = {"none", "ends too early", "unknown type marker", "too deep",
                                       "too many values"};
static_assert(std::size(ERROR_NAMES) == static_cast<size_t>(ScriptError::TOO_MANY) + 1,
              "one per error");

// A sensible value takes 16 bytes with its name; a small body may be denser.
constexpr size_t FREE_NODES = 16384;
constexpr size_t BYTES_PER_NODE = 16;

// Content bytes of values that several of can be one node, with the marker; 0 for other types.
uint32_t fixed_size(AmfType type)
{
    switch (type) {
    case AmfType::NUMBER:
        return 9;
    case AmfType::BOOLEAN:
        return 2;
    case AmfType::REFERENCE:
        return 3;
    case AmfType::NULL_VALUE:
    case AmfType::UNDEFINED:
    case AmfType::UNSUPPORTED:
        return 1;
    default:
        return 0;
    }
}

uint64_t be(const uint8_t* p, size_t bytes)
{
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i)
        value = value << 8 | p[i];
    return value;
}

double to_double(uint64_t image)
{
    double value = 0;
    static_assert(sizeof value == sizeof image, "AMF0 numbers have 64 bits");
    std::memcpy(&value, &image, sizeof value);
    return value;
}

// A number, boolean or reference, whose marker is at `p`.
double scalar(AmfType type, const uint8_t* p)
{
    switch (type) {
    case AmfType::NUMBER:
        return to_double(be(p + 1, 8));
    case AmfType::BOOLEAN:
        return p[1] != 0 ? 1.0 : 0.0;
    case AmfType::REFERENCE:
        return static_cast<double>(be(p + 1, 2));
    default:
        return 0.0;
    }
}

} // namespace

const char* amf_type_name(AmfType type)
{
    return TYPE_NAMES[static_cast<size_t>(type)];
}

const char* script_error_name(ScriptError error)
{
    return ERROR_NAMES[static_cast<size_t>(error)];
}

// Fills a tree. What is open is in `m_open`, never in calls.
class ScriptTree::Reader {
public:
    explicit Reader(ScriptTree& tree)
        : m_tree(tree), m_data(tree.m_body.data()),
          m_size(static_cast<uint32_t>(tree.m_body.size()))
    {}

    void run()
    {
        while (m_tree.m_error == ScriptError::NONE && step()) {
        }
        // What is still open is not complete, and ends where reading did.
        while (!m_open.empty())
            close(false);
        m_tree.m_error_offset = m_at;
    }

private:
    bool fail(ScriptError error)
    {
        m_tree.m_error = error;
        return false;
    }
    uint32_t left() const { return m_size - m_at; }
    ScriptNode& open_node() { return m_tree.m_nodes[m_open.back()]; }

    // A count of `bytes` bytes.
    bool take(uint32_t bytes, uint32_t* value)
    {
        if (bytes > left())
            return fail(ScriptError::TRUNCATED);
        *value = static_cast<uint32_t>(be(m_data + m_at, bytes));
        m_at += bytes;
        return true;
    }
    // Text after its length of `bytes` bytes.
    bool take_text(uint32_t bytes, uint32_t* offset, uint32_t* size)
    {
        if (!take(bytes, size) || *size > left())
            return fail(ScriptError::TRUNCATED);
        *offset = m_at;
        m_at += *size;
        return true;
    }

    bool step();
    bool read_value(ScriptNode node);
    bool read_content(ScriptNode* node);
    bool merge(const ScriptNode& node);
    bool add(const ScriptNode& node);
    void close(bool complete);

    ScriptTree& m_tree;
    const uint8_t* const m_data;
    const uint32_t m_size;
    uint32_t m_at = 0;
    std::vector<uint32_t> m_open; // indices
};

// One value or one end; false at the end of the body and after an error.
bool ScriptTree::Reader::step()
{
    ScriptNode node;
    while (!m_open.empty() && open_node().type == AmfType::STRICT_ARRAY &&
           open_node().found == open_node().count)
        close(true);
    if (m_open.empty()) {
        if (left() == 0)
            return false;
        // An object end that belongs to no object: many writers end the body with one.
        if (left() == 3 && be(m_data + m_at, 3) == 9) {
            m_at += 2;
        }
        return read_value(node);
    }
    if (open_node().type == AmfType::STRICT_ARRAY)
        return read_value(node);
    if (left() >= 3 && be(m_data + m_at, 3) == 9) { // an empty name and the end marker
        m_at += 3;
        close(true);
        return true;
    }
    node.has_name = true;
    const uint32_t start = m_at;
    if (take_text(2, &node.name_offset, &node.name_size) && left() > 0)
        return read_value(node);
    m_at = start;
    return fail(ScriptError::TRUNCATED);
}

bool ScriptTree::Reader::read_value(ScriptNode node)
{
    node.offset = m_at;
    node.depth = static_cast<uint8_t>(m_open.size());
    if (left() == 0)
        return fail(ScriptError::TRUNCATED);
    if (m_data[m_at] > static_cast<uint8_t>(AmfType::AVM_PLUS))
        return fail(ScriptError::UNKNOWN_MARKER);
    node.type = static_cast<AmfType>(m_data[m_at]);
    ++m_at;
    if (!read_content(&node)) {
        m_at = node.offset;
        return false;
    }
    node.end = m_at;
    return merge(node) || add(node);
}

// What follows the marker, up to the values inside.
bool ScriptTree::Reader::read_content(ScriptNode* node)
{
    if (const uint32_t size = fixed_size(node->type)) {
        if (size - 1 > left())
            return fail(ScriptError::TRUNCATED);
        node->number = scalar(node->type, m_data + m_at - 1);
        m_at += size - 1;
        return true;
    }
    switch (node->type) {
    case AmfType::STRING:
    case AmfType::TYPED_OBJECT:
        return take_text(2, &node->text_offset, &node->text_size);
    case AmfType::LONG_STRING:
    case AmfType::XML_DOCUMENT:
        return take_text(4, &node->text_offset, &node->text_size);
    case AmfType::ECMA_ARRAY:
    case AmfType::STRICT_ARRAY:
        return take(4, &node->count);
    case AmfType::DATE: {
        uint32_t zone = 0;
        if (left() < 10)
            return fail(ScriptError::TRUNCATED);
        node->number = to_double(be(m_data + m_at, 8));
        m_at += 8;
        take(2, &zone);
        node->zone = static_cast<int16_t>(zone);
        return true;
    }
    case AmfType::AVM_PLUS:
        node->text_offset = m_at;
        node->text_size = left();
        m_at = m_size;
        return true;
    default: // an object, or a reserved type
        return true;
    }
}

// In a strict array, values like the one before are one node with it: an index takes no more memory
// than its body.
bool ScriptTree::Reader::merge(const ScriptNode& node)
{
    if (m_open.empty() || open_node().type != AmfType::STRICT_ARRAY || fixed_size(node.type) == 0)
        return false;
    ScriptNode& last = m_tree.m_nodes.back();
    if (last.depth != node.depth || last.type != node.type || last.end != node.offset)
        return false;
    ++last.repeat;
    last.end = node.end;
    ++open_node().found;
    return true;
}

bool ScriptTree::Reader::add(const ScriptNode& node)
{
    std::vector<ScriptNode>& nodes = m_tree.m_nodes;
    const bool opens = node.type == AmfType::OBJECT || node.type == AmfType::TYPED_OBJECT ||
                       node.type == AmfType::ECMA_ARRAY || node.type == AmfType::STRICT_ARRAY;
    const bool too_deep = opens && m_open.size() >= MAX_DEPTH;
    if (too_deep || nodes.size() >= FREE_NODES + m_size / BYTES_PER_NODE) {
        m_at = node.offset;
        return fail(too_deep ? ScriptError::TOO_DEEP : ScriptError::TOO_MANY);
    }
    if (!m_open.empty())
        ++open_node().found;
    nodes.push_back(node);
    nodes.back().next = static_cast<uint32_t>(nodes.size());
    if (opens)
        m_open.push_back(static_cast<uint32_t>(nodes.size() - 1));
    return true;
}

void ScriptTree::Reader::close(bool complete)
{
    ScriptNode& node = open_node();
    node.closed = complete;
    node.end = m_at;
    node.next = static_cast<uint32_t>(m_tree.m_nodes.size());
    m_open.pop_back();
}

ScriptTree::ScriptTree(const uint8_t* body, size_t size) : m_body(body, body + size)
{
    Reader(*this).run();
}

uint32_t ScriptTree::offset(const ScriptNode& node, uint32_t i) const
{
    return node.offset + i * fixed_size(node.type);
}

double ScriptTree::number(const ScriptNode& node, uint32_t i) const
{
    return i == 0 ? node.number : scalar(node.type, m_body.data() + offset(node, i));
}

const ScriptNode* ScriptTree::top(size_t n) const
{
    size_t at = 0;
    while (at < m_nodes.size() && n > 0) {
        at = m_nodes[at].next;
        --n;
    }
    return at < m_nodes.size() ? &m_nodes[at] : nullptr;
}

const ScriptNode* ScriptTree::property(const ScriptNode& object, std::string_view wanted) const
{
    const ScriptNode* found = nullptr;
    for (const ScriptNode* n = first_inside(object); n; n = next_inside(object, *n))
        found = n->has_name && name(*n) == wanted ? n : found;
    return found;
}

const ScriptNode* ScriptTree::first_inside(const ScriptNode& node) const
{
    const size_t at = index(node) + 1;
    return at < node.next ? &m_nodes[at] : nullptr;
}

const ScriptNode* ScriptTree::next_inside(const ScriptNode& outer, const ScriptNode& node) const
{
    return node.next < outer.next ? &m_nodes[node.next] : nullptr;
}

std::vector<double> ScriptTree::numbers(const ScriptNode& array) const
{
    std::vector<double> out;
    for (const ScriptNode* n = first_inside(array); n; n = next_inside(array, *n)) {
        for (uint32_t i = 0; n->type == AmfType::NUMBER && i < n->repeat; ++i)
            out.push_back(number(*n, i));
    }
    return out;
}

} // namespace zoflv_inspect
