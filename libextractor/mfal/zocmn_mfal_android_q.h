// SPDX-License-Identifier: Apache-2.0
/// @file
/// File access over the platform's data source: the record of callbacks that the demuxer reads
/// through.
///
/// The adapter keeps no shared position and no lock: every open yields a handle with a position of
/// its own, and the source must accept concurrent positioned reads.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"

#include <media/MediaExtractorPluginHelper.h>

/// Clears the record and fills it with the adapter's callbacks and a context over `source`.
/// @param source  not owned; must outlive the record, its copies and every handle they opened. Null
///                makes every open fail.
/// @return 0, or -5 with the record cleared when the context cannot be allocated
int zocmn_mfal_init(_ZOCMN_MFAL* mfal, android::DataSourceHelper* source);

/// Releases the context and clears the whole record. Call it once, on the record that was
/// initialised, when no handle opened through it or a copy is left. Nothing for null.
void zocmn_mfal_deinit(_ZOCMN_MFAL* mfal);
