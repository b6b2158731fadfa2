// SPDX-License-Identifier: Apache-2.0
#include "elf_symbols.h"

#include <zoflv_host/data_source.h>

#include <cstdint>
#include <cstring>
#include <link.h> // ElfW

namespace zoflv_host {

namespace {

/// What a library's file holds, read where it is needed; the file may place structures anywhere.
class ElfFile {
public:
    explicit ElfFile(android::CDataSource* source) : m_source(source) {}

    template <typename T>
    bool get(uint64_t offset, T* out) const
    {
        return read(offset, out, sizeof(T)) == sizeof(T);
    }

    /// @return the terminated text at an offset, or an empty one when it runs past the end
    std::string text(uint64_t offset) const
    {
        char piece[64];
        std::string whole;
        for (size_t n = 0; (n = read(offset + whole.size(), piece, sizeof piece)) > 0;) {
            const size_t length = ::strnlen(piece, n);
            whole.append(piece, length);
            if (length < n)
                return whole;
        }
        return {};
    }

private:
    /// @return the bytes read
    size_t read(uint64_t offset, void* out, size_t size) const
    {
        if (offset > INT64_MAX)
            return 0;
        const ssize_t n =
            m_source->readAt(m_source->handle, static_cast<off64_t>(offset), out, size);
        return n > 0 ? static_cast<size_t>(n) : 0;
    }

    android::CDataSource* const m_source;
};

bool is_library(const ElfW(Ehdr) & header)
{
    constexpr unsigned char NATIVE_CLASS = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
           header.e_ident[EI_CLASS] == NATIVE_CLASS && header.e_type == ET_DYN &&
           header.e_shentsize == sizeof(ElfW(Shdr));
}

bool is_defined(const ElfW(Sym) & symbol)
{
    // The parts of the two bytes are the same in both classes.
    const bool local = ELF64_ST_BIND(symbol.st_info) == STB_LOCAL;
    const int visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return !local && symbol.st_shndx != SHN_UNDEF &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

/// @return false when the symbols lie outside of the file
bool list_symbols(const ElfFile& file, const ElfW(Shdr) & symbols, const ElfW(Shdr) & strings,
                  std::vector<std::string>* names)
{
    const uint64_t count = symbols.sh_size / sizeof(ElfW(Sym));
    for (uint64_t i = 0; i < count; ++i) {
        ElfW(Sym) symbol;
        if (!file.get(symbols.sh_offset + i * sizeof symbol, &symbol))
            return false;
        if (is_defined(symbol))
            names->push_back(file.text(strings.sh_offset + symbol.st_name));
    }
    return true;
}

} // namespace

bool read_defined_symbols(const std::string& path, std::vector<std::string>* names,
                          std::string* error)
{
    const auto source = FileDataSource::open(path, error);
    if (!source)
        return false;
    const ElfFile file(source->record());
    ElfW(Ehdr) header;
    if (!file.get(0, &header) || !is_library(header)) {
        *error = "not a shared library for this machine";
        return false;
    }
    for (uint64_t i = 0; i < header.e_shnum; ++i) {
        ElfW(Shdr) section;
        ElfW(Shdr) strings;
        if (!file.get(header.e_shoff + i * sizeof section, &section))
            break;
        if (section.sh_type != SHT_DYNSYM)
            continue;
        if (file.get(header.e_shoff + section.sh_link * sizeof strings, &strings) &&
            list_symbols(file, section, strings, names))
            return true;
        break;
    }
    *error = "has no readable table of dynamic symbols";
    return false;
}

} // namespace zoflv_host
