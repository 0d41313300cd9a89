#pragma once

#include <string>

namespace Json {
class Value;
}

namespace reporter {

/// Whole contents of the file, any bytes, all in memory. Throws std::runtime_error "<path> :file
/// doesn't exist" when it cannot be opened or read.
std::string read_file(const std::string& path);

/// Contents of the file, or `fallback` when it cannot be read for whatever reason.
std::string read_file_default(const std::string& path, const std::string& fallback);

/// Whether the file can be read and holds exactly `content`.
bool file_is_equal(const std::string& path, const std::string& content);

/// Empties the file, made if missing, and writes the content into it. It is not flushed to the
/// medium. A failure does not show: a file that cannot be opened stays as it was, and on a full
/// disk the file ends early.
void write_file(const std::string& path, const std::string& content);

/// Adds to the end of the file, made if missing. Fails like write_file.
void append_to_file(const std::string& path, const std::string& content);

/// Size in bytes, -1 when the file cannot be opened.
long long size_file(const std::string& path);

/// Writes the document in indented form. Fails like write_file.
void write_json(const std::string& path, const Json::Value& value);

/// Any JSON document. Throws std::runtime_error "can't parse json". Any thread: callers take turns.
Json::Value json_parse(const std::string& text);

/// Local time as "2026-Nov-24 21:05:59". Throws std::runtime_error when the clock does not convert.
std::string get_current_time();

}  // namespace reporter
