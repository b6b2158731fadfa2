// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the report on a file is made from: the verdict, totals, and the data of its pictures.
#pragma once

#include "inspect/report_bins.h"
#include "inspect/scan.h"
#include "inspect/verdict.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_inspect {

/// Something to be marked at a place of the file.
struct ReportMark {
    enum Kind : uint8_t { RESET, JUMP, LOST };

    Kind kind = LOST;
    StreamKind stream = StreamKind::FILE;
    int64_t offset = 0; ///< bytes
    int64_t size = 0;   ///< of a lost range, bytes
    int64_t dts_ms = 0; ///< of a jump or reset: the time after it
    int64_t by_ms = 0;  ///< and the step
};

/// A property of the metadata, as the file has it: anything can be in the texts.
struct ReportProperty {
    std::string name;
    std::string value;
};

/// Memory: constant, but for what the verdict needs.
struct ReportData {
    static constexpr size_t MOST_MARKS = 100;
    static constexpr size_t MOST_PROPERTIES = 60;
    static constexpr size_t LONGEST_TEXT = 300; ///< bytes of a name or value

    std::string name; ///< of the file
    DeviceProfile device;
    Verdict verdict;
    Scan scan;
    std::vector<ReportProperty>
        properties;                     ///< numbers, booleans and strings of the first onMetaData
    uint64_t more_properties = 0;       ///< left out
    BinSeries<RateBin> rate{250};       ///< over decoding time, ms
    BinSeries<PlaceBin> place{256};     ///< over the file, bytes
    BinSeries<SpacingBin> spacing{250}; ///< over decoding time, ms
    std::vector<ReportMark> marks;      ///< in the order of the file
    uint64_t more_marks = 0;            ///< left out
    /// "previous" once more, with the index hidden from the device; nothing when there is no index or
    /// seeks were not tried.
    std::optional<SeekTest> seeks_without_index;
};

/// Gathers from a walk what the verdict does not have.
class ReportCollector {
public:
    explicit ReportCollector(ReportData* data) : m_data(*data) {}

    /// Takes the walk's next item; `walker` is the one that gave it.
    void see(const Item& item, TagWalker& walker);
    /// Takes over what was counted. After the last item.
    void finish() { m_data.scan = m_scanner.scan(); }
    /// Where the names of keyframe indexes are in the file, bytes.
    const std::vector<int64_t>& index_names() const { return m_index_names; }

private:
    void see_frame(const Tag& tag);
    void see_metadata(const Tag& tag, TagWalker& walker);
    void mark(const ReportMark& mark);

    ReportData& m_data;
    Scanner m_scanner;
    std::optional<int64_t> m_last_ms[2]; ///< video, audio
    std::optional<int64_t> m_key_ms;
    bool m_metadata = false;
    std::vector<int64_t> m_index_names;
};

/// Checks a file as check() does, and walks it a second time when it has an index that is to be hidden.
/// @param name  as it is shown
ReportData make_report(zoflv_host::ExtractorLibrary& plugin,
                       const std::shared_ptr<zoflv_host::DataSource>& source,
                       const std::string& name, const DeviceOptions& options = {},
                       const Progress& progress = {});

} // namespace zoflv_inspect
