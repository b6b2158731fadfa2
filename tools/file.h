// SPDX-License-Identifier: Apache-2.0
/// @file
/// An FLV file opened with the demuxer, by way of the file-access adapter that the plugin uses too.
#pragma once

#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "tools/log.h"
#include "tools/output.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <zoflv_host/data_source.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// What went wrong, for a message: what the log tells, else the code in words.
/// @param code  a result code of the demuxer or a status of the plugin
std::string reason(int code, const LogTap& log);

/// The failure of a file that is not readable as FLV: what its first bytes say, else the reason.
Failure not_flv(zoflv_host::DataSource& source, const std::string& why);

/// Throws Failure when the file cannot be opened.
std::unique_ptr<zoflv_host::DataSource> open_source(const std::string& path);

/// The numbers from 0 to `count` - 1, or only the one that is wanted; -1 wants all. Throws Failure
/// when it is not among them.
/// @param what  "stream" or "track"
std::vector<int> select_numbers(const char* what, int wanted, int count);

/// Owns everything from the file to the demuxer handle.
class FlvFile {
public:
    /// Throws Failure when the file cannot be opened or is not readable as FLV.
    /// @param log  gives the reason of a failure and outlives the file
    FlvFile(const std::string& path, LogTap& log);
    FlvFile(const FlvFile&) = delete;
    FlvFile& operator=(const FlvFile&) = delete;

    ZOFLVD* handle() const { return m_handle.get(); }
    const ZOFLVD_INFO& info() const { return m_info; }
    const _ZOCMN_MFAL& mfal() const { return m_mfal; }
    LogTap& log() const { return m_log; }
    int64_t size() const; ///< bytes
    zoflv_host::DataSource& source() const { return *m_source; }

private:
    // Each member uses those above it.
    LogTap& m_log;
    std::unique_ptr<zoflv_host::DataSource> m_source;
    std::unique_ptr<android::DataSourceHelper> m_helper;
    _ZOCMN_MFAL m_mfal{};
    std::unique_ptr<_ZOCMN_MFAL, void (*)(_ZOCMN_MFAL*)> m_mfal_owner{&m_mfal, zocmn_mfal_deinit};
    ZOFLVD_INFO m_info{};
    std::unique_ptr<ZOFLVD, void (*)(ZOFLVD*)> m_handle{nullptr, zoflvd_delete};
};

/// The values of the file's `onMetaData`, which the demuxer decodes but does not hand out: decoded
/// here once more. All zero when there are none.
std::shared_ptr<const ZOFLVD_METADATA> read_metadata(const FlvFile& file);
