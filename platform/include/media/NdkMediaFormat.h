// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the platform's media format: typed values under text keys.
///
/// A format may be read from several threads, not written while another thread uses it. Strings and
/// buffers are copied in. The pointers that the readers hand out belong to the format and last
/// until the key is set again or the format is cleared, copied into or deleted.
#pragma once

#include <media/NdkMediaError.h>

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AMediaFormat AMediaFormat;

AMediaFormat* AMediaFormat_new(void);
media_status_t AMediaFormat_delete(AMediaFormat* format);
/// Makes `to` equal to `from`: keys that only `to` had are gone.
media_status_t AMediaFormat_copy(AMediaFormat* to, AMediaFormat* from);
media_status_t AMediaFormat_clear(AMediaFormat* format);

/// Setting a key again replaces its value, of whatever type it was. Null arguments set nothing.
void AMediaFormat_setInt32(AMediaFormat* format, const char* key, int32_t value);
void AMediaFormat_setInt64(AMediaFormat* format, const char* key, int64_t value);
void AMediaFormat_setString(AMediaFormat* format, const char* key, const char* value);
void AMediaFormat_setBuffer(AMediaFormat* format, const char* key, const void* data, size_t size);

/// The readers return false, and write nothing, when the key is missing or of another type.
bool AMediaFormat_getInt32(AMediaFormat* format, const char* key, int32_t* out);
bool AMediaFormat_getInt64(AMediaFormat* format, const char* key, int64_t* out);
bool AMediaFormat_getString(AMediaFormat* format, const char* key, const char** out);
bool AMediaFormat_getBuffer(AMediaFormat* format, const char* key, void** data, size_t* size);
/// One line with every key. The text belongs to the format, until the next call.
const char* AMediaFormat_toString(AMediaFormat* format);

extern const char* AMEDIAFORMAT_KEY_AAC_PROFILE;     // int32
extern const char* AMEDIAFORMAT_KEY_BITS_PER_SAMPLE; // int32
extern const char* AMEDIAFORMAT_KEY_CHANNEL_COUNT;   // int32
extern const char* AMEDIAFORMAT_KEY_CSD_0;           // buffer
extern const char* AMEDIAFORMAT_KEY_DISPLAY_HEIGHT;  // int32, pixels
extern const char* AMEDIAFORMAT_KEY_DISPLAY_WIDTH;   // int32, pixels
extern const char* AMEDIAFORMAT_KEY_DURATION;        // int64, microseconds
extern const char* AMEDIAFORMAT_KEY_FRAME_RATE;      // int32, frames per second
extern const char* AMEDIAFORMAT_KEY_HEIGHT;          // int32, pixels
extern const char* AMEDIAFORMAT_KEY_MAX_INPUT_SIZE;  // int32, bytes
extern const char* AMEDIAFORMAT_KEY_MIME;            // string
extern const char* AMEDIAFORMAT_KEY_SAMPLE_RATE;     // int32, Hz
extern const char* AMEDIAFORMAT_KEY_TIME_US;         // int64, microseconds
extern const char* AMEDIAFORMAT_KEY_WIDTH;           // int32, pixels

#ifdef __cplusplus
}
#endif
