// SPDX-License-Identifier: Apache-2.0
/// @file
/// Reports as HTML: pages that need nothing but themselves. Whatever a file has in its name or its
/// metadata is text in them, and a content policy forbids scripts and everything from elsewhere.
#pragma once

#include "inspect/report_data.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_inspect {

/// The page of a file, UTF-8. Its size does not grow with the file's.
std::string report_page(const ReportData& data);

/// A row of an index page.
struct ReportRow {
    std::string file;
    std::string page;   ///< a relative link; empty: there is none
    std::string status; ///< "sound" and the like, "failed" where the file could not be read
    std::string text;   ///< verdict and cause, or why it failed
    std::optional<int64_t> size; ///< bytes; nothing: not known
};
ReportRow row_of(const ReportData& data, const std::string& page);

/// A page with a row for each file and how many there are of each status.
std::string index_page(const std::vector<ReportRow>& rows);

} // namespace zoflv_inspect
