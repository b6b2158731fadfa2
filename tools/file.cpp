// SPDX-License-Identifier: Apache-2.0
#include "tools/file.h"

#include "inspect/first_bytes.h"

#include <zoflv_host/extractor.h>

#include <new>
#include <numeric>

namespace {

std::string words(int code)
{
    switch (code) {
    case ZOFLV_OK: // of an open that failed all the same
        return "no stream found";
    case ZOFLV_ERR_FORMAT:
        return "invalid content";
    case ZOFLV_ERR_BUFSIZE:
        return "larger than the buffer for it";
    case ZOFLV_ERR_MALLOC:
        return "out of memory";
    case ZOFLV_ERR_FILEIO:
        return "it cannot be read where it must be";
    default:
        return textf("code %d", code);
    }
}

} // namespace

std::string reason(int code, const LogTap& log)
{
    const std::string cause = log.cause();
    if (!cause.empty())
        return cause;
    if (code > AMEDIA_ERROR_UNKNOWN)
        return words(code);
    return log.plugin_code() != 0 ? words(log.plugin_code())
                                  : zoflv_host::status_text(static_cast<media_status_t>(code));
}

Failure not_flv(zoflv_host::DataSource& source, const std::string& why)
{
    zoflv_inspect::HostSource bytes(source);
    const zoflv_inspect::FirstBytes seen = zoflv_inspect::read_first_bytes(bytes);
    return {EXIT_BAD_FILE, "not readable as FLV: " + (seen.text.empty() ? why : seen.text) +
                               (seen.other ? "" : " (zoflv check tells more)")};
}

std::unique_ptr<zoflv_host::DataSource> open_source(const std::string& path)
{
    std::string why;
    std::unique_ptr<zoflv_host::DataSource> source = zoflv_host::FileDataSource::open(path, &why);
    if (!source)
        throw Failure(EXIT_USAGE, "cannot be opened: " + why);
    return source;
}

std::vector<int> select_numbers(const char* what, int wanted, int count)
{
    if (wanted >= count)
        throw Failure(EXIT_USAGE, textf("no %s %d, the file has %d", what, wanted, count));
    if (wanted >= 0)
        return {wanted};
    std::vector<int> all(static_cast<size_t>(count));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

FlvFile::FlvFile(const std::string& path, LogTap& log) : m_log(log), m_source(open_source(path))
{
    m_helper = std::make_unique<android::DataSourceHelper>(m_source->record());
    if (zocmn_mfal_init(&m_mfal, m_helper.get()) != ZOFLV_OK)
        throw std::bad_alloc();

    log.reset();
    const int64_t unknown_duration = 0;
    int rc = ZOFLV_OK;
    m_handle.reset(zoflvd_create(&m_mfal, &unknown_duration, &m_info, &rc));
    if (!m_handle)
        throw not_flv(*m_source, reason(rc, log));
}

int64_t FlvFile::size() const
{
    off64_t size = 0;
    m_helper->getSize(&size);
    return size;
}

std::shared_ptr<const ZOFLVD_METADATA> read_metadata(const FlvFile& file)
{
    constexpr int64_t data_offset_pos = 5; // DataOffset's place in the file header
    const std::shared_ptr<ZOFLVD_METADATA> metadata(new ZOFLVD_METADATA(), [](ZOFLVD_METADATA* m) {
        zoflvd_metadata_deinit(m);
        delete m;
    });
    uint8_t field[4] = {};
    _ZOCMN_MFAL mfal = file.mfal();
    const std::unique_ptr<void, void (*)(void*)> fh(mfal.open(&mfal, 0), mfal.close);
    if (!fh)
        throw std::bad_alloc();
    if (zoflv_file_setpos(&mfal, fh.get(), data_offset_pos) == 0 &&
        mfal.read(fh.get(), field, sizeof field) == sizeof field) {
        const uint32_t data_offset = uint32_t{field[0]} << 24 | uint32_t{field[1]} << 16 |
                                     uint32_t{field[2]} << 8 | field[3];
        const int64_t first_tag = data_offset + 4; // after PreviousTagSize0, modulo 2^32
        int64_t after = 0;
        // The open has logged all this once.
        const bool shown = file.log().shown();
        file.log().show(false);
        zoflvd_metadata_init(&mfal, fh.get(), &first_tag, metadata.get(), &after);
        file.log().show(shown);
    }
    return metadata;
}
