// SPDX-License-Identifier: Apache-2.0
/// @file
/// Reports as HTML: pages that need nothing but themselves. Whatever a file has in its name or its
/// metadata is text in them, and a content policy forbids scripts and everything from elsewhere.
#pragma once

#include "inspect/report_data.h"

#include <cstdint>
#include <string>

namespace zoflv_inspect {

/// The page of a file, UTF-8. Its size does not grow with the file's.
std::string report_page(const ReportData& data);

/// A row of an index page.
struct ReportRow {
    std::string file;
    std::string page;   ///< a relative link; empty: there is none
    std::string status; ///< "sound" and the like, "failed" where the file could not be read
    std::string text;   ///< verdict and cause, or why it failed
    int64_t size = 0;   ///< bytes
};
ReportRow row_of(const ReportData& data, const std::string& page);

// An index page is its beginning, a text for each row, and its end.
std::string index_begin();
std::string index_row(const ReportRow& row);
std::string index_end();

} // namespace zoflv_inspect
