// SPDX-License-Identifier: Apache-2.0
#include "tools/file.h"

#include "tools/output.h"

#include <new>

std::string reason(int code, const LogTap& log)
{
    std::string text = textf("code %d", code);
    switch (code) {
    case ZOFLV_OK: // of an open that failed all the same
        text = "no stream found";
        break;
    case ZOFLV_ERR_FORMAT:
        text = "invalid content";
        break;
    case ZOFLV_ERR_MALLOC:
        text = "out of memory";
        break;
    case ZOFLV_ERR_FILEIO:
        text = "it cannot be read where it must be";
        break;
    default:
        break;
    }
    return log.first_error().empty() ? text : text + " (" + log.first_error() + ")";
}

FlvFile::FlvFile(const std::string& path, LogTap& log) : m_log(log)
{
    std::string why;
    m_source = zoflv_host::FileDataSource::open(path, &why);
    if (!m_source)
        throw Failure(EXIT_USAGE, "cannot be opened: " + why);
    m_helper = std::make_unique<android::DataSourceHelper>(m_source->record());
    if (zocmn_mfal_init(&m_mfal, m_helper.get()) != ZOFLV_OK)
        throw std::bad_alloc();

    log.reset();
    const int64_t unknown_duration = 0;
    int rc = ZOFLV_OK;
    m_handle.reset(zoflvd_create(&m_mfal, &unknown_duration, &m_info, &rc));
    if (!m_handle)
        throw Failure(EXIT_BAD_FILE, "not readable as FLV: " + reason(rc, log));
}

int64_t FlvFile::size() const
{
    off64_t size = 0;
    m_helper->getSize(&size);
    return size;
}

Metadata::Metadata(const FlvFile& file)
{
    constexpr int64_t data_offset_pos = 5; // DataOffset's place in the file header
    uint8_t field[4] = {};
    _ZOCMN_MFAL mfal = file.mfal();
    void* fh = mfal.open(&mfal, 0);
    if (!fh)
        throw std::bad_alloc();
    if (zoflv_file_setpos(&mfal, fh, data_offset_pos) == 0 &&
        mfal.read(fh, field, sizeof field) == sizeof field) {
        const uint32_t data_offset = uint32_t{field[0]} << 24 | uint32_t{field[1]} << 16 |
                                     uint32_t{field[2]} << 8 | field[3];
        const int64_t first_tag = data_offset + 4; // behind PreviousTagSize0, modulo 2^32
        int64_t behind = 0;
        // The open has logged all this once.
        const bool shown = file.log().shown();
        file.log().show(false);
        zoflvd_metadata_init(&mfal, fh, &first_tag, &m_record, &behind);
        file.log().show(shown);
    }
    mfal.close(fh);
}

Metadata::~Metadata()
{
    zoflvd_metadata_deinit(&m_record);
}
