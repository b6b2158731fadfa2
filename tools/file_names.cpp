// SPDX-License-Identifier: Apache-2.0
#include "tools/file_names.h"

#include "tools/session.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr size_t longest_name = 1 << 16; // far above what a system opens

const char* const not_a_list =
    "the names in the list have to end with a NUL byte, as find -print0 writes them";

} // namespace

FileNames::FileNames(std::vector<std::string> named, std::string list) : m_named(std::move(named))
{
    if (list.empty())
        return;
    m_list.reset(list == "-" ? stdin : std::fopen(list.c_str(), "re"));
    if (!m_list)
        throw SetupFailure(list, std::string("the list cannot be opened: ") + std::strerror(errno));
}

bool FileNames::next(std::string* name)
{
    if (m_at < m_named.size()) {
        *name = m_named[m_at++];
        return true;
    }
    return m_list && next_in_list(name);
}

bool FileNames::next_in_list(std::string* name)
{
    name->clear();
    int c = EOF;
    while ((c = std::getc(m_list.get())) != EOF && c != '\0') {
        if (name->size() >= longest_name)
            throw Failure(EXIT_USAGE, not_a_list);
        name->push_back(static_cast<char>(c));
    }
    if (c == EOF && std::ferror(m_list.get()))
        throw Failure(EXIT_USAGE, std::string("the list cannot be read: ") + std::strerror(errno));
    if (c == EOF && name->find('\n') != std::string::npos) // a list of lines
        throw Failure(EXIT_USAGE, not_a_list);
    return c == '\0' || !name->empty();
}
