// SPDX-License-Identifier: Apache-2.0
#include "elf_symbols.h"

#include <zoflv_host/data_source.h>

#include <cstdint>
#include <cstring>
#include <link.h> // ElfW

namespace zoflv_host {

namespace {

/// The file's bytes; structures are copied out, as the file may place them anywhere.
class ElfFile {
public:
    explicit ElfFile(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}

    template <typename T>
    bool get(uint64_t offset, T* out) const
    {
        if (offset > m_bytes.size() || sizeof(T) > m_bytes.size() - offset)
            return false;
        std::memcpy(out, m_bytes.data() + offset, sizeof(T));
        return true;
    }

    /// @return the terminated text at an offset, or an empty one when it runs past the end
    std::string text(uint64_t offset) const
    {
        if (offset >= m_bytes.size())
            return {};
        const auto* start = reinterpret_cast<const char*>(m_bytes.data()) + offset;
        const size_t room = m_bytes.size() - static_cast<size_t>(offset);
        const size_t length = ::strnlen(start, room);
        return length < room ? std::string(start, length) : std::string();
    }

private:
    std::vector<uint8_t> m_bytes;
};

bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error)
{
    constexpr off64_t MAX_SIZE = off64_t{1} << 30; // nothing that would be a plugin is larger
    const auto file = FileDataSource::open(path, error);
    if (!file)
        return false;
    android::CDataSource* record = file->record();
    off64_t size = 0;
    if (record->getSize(record->handle, &size) != 0 || size > MAX_SIZE) {
        *error = "cannot be read";
        return false;
    }
    bytes->resize(static_cast<size_t>(size));
    if (record->readAt(record->handle, 0, bytes->data(), bytes->size()) != size) {
        *error = "cannot be read";
        return false;
    }
    return true;
}

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
    std::vector<uint8_t> bytes;
    if (!read_file(path, &bytes, error))
        return false;
    const ElfFile file(std::move(bytes));
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
