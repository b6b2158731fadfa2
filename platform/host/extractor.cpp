// SPDX-License-Identifier: Apache-2.0
#include <zoflv_host/extractor.h>

#include "elf_symbols.h"

#include <cstdlib>
#include <dlfcn.h>

namespace zoflv_host {

namespace {

constexpr char ENTRY[] = "GETEXTRACTORDEF";

/// @return whether GETEXTRACTORDEF is the only symbol that the library defines
bool exports_only_entry(const std::string& path, std::string* error)
{
    std::vector<std::string> names;
    if (!read_defined_symbols(path, &names, error))
        return false;
    bool found = false;
    for (const std::string& name : names) {
        if (name != ENTRY) {
            *error = "exports \"" + name + "\"; a plugin exports nothing but " + ENTRY;
            return false;
        }
        found = true;
    }
    if (!found)
        *error = std::string("does not export ") + ENTRY;
    return found;
}

/// dlopen searches for a name without a slash.
std::string with_folder(const std::string& path)
{
    return path.find('/') == std::string::npos ? "./" + path : path;
}

std::string loader_error()
{
    const char* text = ::dlerror();
    return text ? text : "cannot be loaded";
}

bool is_complete(const android::ExtractorDef& definition, std::string* error)
{
    if (definition.def_version != android::EXTRACTORDEF_VERSION) {
        *error = "has a definition of version " + std::to_string(definition.def_version) +
                 ", not " + std::to_string(android::EXTRACTORDEF_VERSION);
        return false;
    }
    if (!definition.sniff || !definition.extractor_name || !definition.supported_types) {
        *error = "has an incomplete definition";
        return false;
    }
    return true;
}

} // namespace

std::string status_text(media_status_t status)
{
    switch (status) {
    case AMEDIA_OK:
        return "success";
    case AMEDIA_ERROR_UNKNOWN:
        return "unknown error";
    case AMEDIA_ERROR_UNSUPPORTED:
        return "not supported";
    case AMEDIA_ERROR_INVALID_OPERATION:
        return "invalid operation";
    case AMEDIA_ERROR_END_OF_STREAM:
        return "end of stream";
    case AMEDIA_ERROR_IO:
        return "input/output error";
    }
    return "status " + std::to_string(static_cast<int>(status));
}

std::shared_ptr<ExtractorLibrary> ExtractorLibrary::load(const std::string& path,
                                                         std::string* error)
{
    if (!exports_only_entry(path, error))
        return nullptr;
    void* const library = ::dlopen(with_folder(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        *error = loader_error();
        return nullptr;
    }
    const auto entry = reinterpret_cast<android::GetExtractorDef>(::dlsym(library, ENTRY));
    if (!entry) {
        *error = loader_error();
        ::dlclose(library);
        return nullptr;
    }
    std::shared_ptr<ExtractorLibrary> loaded(new ExtractorLibrary(library, entry()));
    return is_complete(loaded->m_definition, error) ? loaded : nullptr;
}

std::shared_ptr<ExtractorLibrary> ExtractorLibrary::of(const android::ExtractorDef& definition)
{
    return std::shared_ptr<ExtractorLibrary>(new ExtractorLibrary(nullptr, definition));
}

ExtractorLibrary::~ExtractorLibrary()
{
    if (m_library)
        ::dlclose(m_library);
}

std::shared_ptr<Extractor> ExtractorLibrary::open(std::shared_ptr<DataSource> source,
                                                  std::string* error)
{
    std::shared_ptr<Extractor> extractor(new Extractor);
    extractor->m_library = shared_from_this();
    extractor->m_source = std::move(source);
    android::CDataSource* const record = extractor->m_source->record();
    const android::CreatorFunc creator = m_definition.sniff(
        record, &extractor->m_confidence, &extractor->m_meta, &extractor->m_free_meta);
    if (!creator) {
        *error = "not recognised";
        return nullptr;
    }
    extractor->m_record = creator(record, extractor->m_meta);
    if (!extractor->m_record) {
        *error = "the plugin made no extractor";
        return nullptr;
    }
    return extractor;
}

Extractor::~Extractor()
{
    if (m_record) {
        m_record->free(m_record->data);
        std::free(m_record);
    }
    if (m_free_meta)
        m_free_meta(m_meta);
}

std::unique_ptr<Track> Extractor::track(size_t index)
{
    android::CMediaTrack* const record = m_record->getTrack(m_record->data, index);
    return std::unique_ptr<Track>(record ? new Track(shared_from_this(), record) : nullptr);
}

const uint8_t* Sample::data() const
{
    return static_cast<const uint8_t*>(m_buffer->data(m_buffer->handle)) +
           m_buffer->range_offset(m_buffer->handle);
}

std::optional<int64_t> Sample::int64(const char* key) const
{
    int64_t value = 0;
    return AMediaFormat_getInt64(format(), key, &value) ? std::optional(value) : std::nullopt;
}

void Sample::release()
{
    if (m_buffer)
        m_buffer->release(m_buffer->handle);
    m_buffer = nullptr;
    m_group.reset();
}

Track::~Track()
{
    m_record->free(m_record->data);
    std::free(m_record);
}

media_status_t Track::start()
{
    auto group = std::make_shared<BufferGroup>();
    const media_status_t status = m_record->start(m_record->data, group->record());
    // The plugin has let go of the earlier group only now.
    m_group = std::move(group);
    return status;
}

ReadResult Track::read_with(uint32_t options, int64_t time_us)
{
    android::CMediaBuffer* buffer = nullptr;
    const media_status_t status = m_record->read(m_record->data, &buffer, options, time_us);
    if (status != AMEDIA_OK || !buffer)
        return {status, {}};
    return {status, Sample(buffer, m_group)};
}

} // namespace zoflv_host
