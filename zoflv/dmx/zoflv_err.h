// SPDX-License-Identifier: Apache-2.0
/// @file
/// Result codes of every demuxer operation.
#pragma once

enum : int {
    ZOFLV_OK = 0,               ///< success
    ZOFLV_EOF = 1,              ///< end of data or of the stream; from searches: nothing found
    ZOFLV_ERR_FAIL = -1,        ///< invalid argument or handle, failed check or file callback
    ZOFLV_ERR_UNSUPPORTED = -2, ///< operation not available for this stream
    ZOFLV_ERR_FORMAT = -3,      ///< invalid file content
    ZOFLV_ERR_BUFSIZE = -4,     ///< the caller's buffer is too small
    ZOFLV_ERR_MALLOC = -5,      ///< memory could not be allocated
    ZOFLV_ERR_FILEIO = -6,      ///< the file could not be opened, positioned, sized or read
};
