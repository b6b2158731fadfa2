// SPDX-License-Identifier: Apache-2.0
/// @file
/// An FLV file opened with the demuxer, by way of the file-access adapter that the plugin uses too.
#pragma once

#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "tools/log.h"
#include "zoflv/dmx/zoflvd.h"
#include "zoflv/dmx/zoflvd_metadata.h"

#include <zoflv_host/data_source.h>

#include <cstdint>
#include <memory>
#include <string>

constexpr int FLV_TYPE_AUDIO = 8; ///< stream types of ZOFLVD_INFO
constexpr int FLV_TYPE_VIDEO = 9;

/// What went wrong, for a message: the demuxer's result code in words, and the error it logged.
std::string reason(int code, const LogTap& log);

/// Owns everything from the file to the demuxer handle.
class FlvFile {
public:
    /// Throws Failure when the file cannot be opened or is not readable as FLV.
    /// @param log  gives the reason of a failure and outlives the file
    FlvFile(const std::string& path, LogTap& log);

    ZOFLVD* handle() const { return m_handle.get(); }
    const ZOFLVD_INFO& info() const { return m_info; }
    const _ZOCMN_MFAL& mfal() const { return m_mfal; }
    LogTap& log() const { return m_log; }
    int64_t size() const; ///< bytes

private:
    struct Mfal : _ZOCMN_MFAL {
        Mfal() : _ZOCMN_MFAL{} {}
        ~Mfal() { zocmn_mfal_deinit(this); }
        Mfal(const Mfal&) = delete;
        Mfal& operator=(const Mfal&) = delete;
    };
    struct Delete {
        void operator()(ZOFLVD* h) const { zoflvd_delete(h); }
    };

    // Each member uses those above it.
    LogTap& m_log;
    std::unique_ptr<zoflv_host::DataSource> m_source;
    std::unique_ptr<android::DataSourceHelper> m_helper;
    Mfal m_mfal;
    ZOFLVD_INFO m_info{};
    std::unique_ptr<ZOFLVD, Delete> m_handle;
};

/// The values of the file's `onMetaData`, which the demuxer decodes but does not hand out: decoded
/// here once more. All zero when there are none.
class Metadata {
public:
    explicit Metadata(const FlvFile& file);
    ~Metadata();
    Metadata(const Metadata&) = delete;
    Metadata& operator=(const Metadata&) = delete;

    const ZOFLVD_METADATA& record() const { return m_record; }

private:
    ZOFLVD_METADATA m_record{};
};
