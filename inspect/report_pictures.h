// SPDX-License-Identifier: Apache-2.0
/// @file
/// The pictures of a report, each with a table of what it shows.
#pragma once

#include "inspect/report_data.h"
#include "inspect/report_writer.h"

namespace zoflv_inspect {

// Each is a section of the page; one without data says in a sentence why.
Markup picture_of_rate(const ReportData& data);
Markup picture_of_times(const ReportData& data);
Markup picture_of_distance(const ReportData& data);
Markup picture_of_spacing(const ReportData& data);
Markup picture_of_seeks(const ReportData& data);

/// The heading of a section, which its `id` and the page's list of contents name.
Markup section_begin(std::string_view id, std::string_view heading);
Markup section_end();
/// "at 1:23.5", and where no frame is "none".
std::string landing_text(const SeekLanding& landing);

} // namespace zoflv_inspect
