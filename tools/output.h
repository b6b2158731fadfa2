// SPDX-License-Identifier: Apache-2.0
/// @file
/// What the command writes: results on stdout, messages on stderr, and the exit codes.
#pragma once

#include "inspect/printable.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

using Json = nlohmann::ordered_json;

enum ExitCode : int {
    EXIT_FINE = 0,
    EXIT_BAD_FILE = 1, ///< the file is not readable as FLV, or a read failed
    EXIT_USAGE = 2,    ///< wrong usage, a file that cannot be opened, or output that failed
};

/// Ends the work on one file, or with nothing to go on with the whole run.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}
    ExitCode code() const { return m_code; }

private:
    ExitCode m_code;
};

/// The output could not be written: nothing more is worth doing.
class OutputFailure : public Failure {
public:
    using Failure::Failure;
};

/// printf into a string.
std::string textf(const char* format, ...) __attribute__((format(printf, 1, 2)));

using zoflv_inspect::printable;

/// A time or duration in seconds, exactly, with at least three decimals.
/// @param ticks  100-ns units
std::string seconds(int64_t ticks);

/// Two lower-case digits for each byte.
std::string hex(const uint8_t* bytes, size_t count);

/// A line in the making, for listings: takes no memory from the heap. Text that does not fit is cut.
class Line {
public:
    Line& add(std::string_view text);
    Line& add(int64_t number);
    /// As seconds() gives it.
    Line& add_seconds(int64_t ticks);
    /// Eight lower-case hexadecimal digits.
    Line& add_hex(uint32_t number);
    /// Moves what was added since `start`, a size(), to the right, so that it ends `width` columns after
    /// it, or more when it is longer.
    Line& align(size_t start, size_t width);

    size_t size() const { return m_size; }
    std::string_view text() const { return {m_text, m_size}; }

private:
    char m_text[512]; // longer than any line of a listing
    size_t m_size = 0;
};

/// Writes stdout in large pieces, for a long listing; before anything was written. A terminal goes on
/// getting line by line.
void buffer_output();
/// Writes to stdout. Throws OutputFailure when that fails.
void put(std::string_view text);
/// A JSON value on one line; bytes that are no UTF-8 become replacement characters. For a terminal
/// in ASCII alone.
std::string json_text(const Json& value);
/// Writes one JSON value and a line end.
void put_line(const Json& value);
void flush_output();

/// Writes the message "zoflv: subject: text" to stderr, always one line.
void complain(const std::string& subject, std::string_view text);

/// Does a piece of work and complains where it fails; an OutputFailure passes.
/// @param worst  raised to the exit code of the failure
void attempt(int* worst, const std::string& subject, const std::function<void()>& work);
