#pragma once

#include <fstream>
#include <set>
#include <string>

#include <json/json.h>

namespace collector {

/// What the server has: the file of accepted reports and the hashes of their contents.
/// Not thread-safe.
class report_store {
public:
    /// Appends to the file from now on; an empty path keeps hashes only. Throws std::runtime_error
    /// when the file cannot be opened.
    explicit report_store(const std::string& path);

    /// Makes the hashes of a file known, one a line. Throws std::runtime_error.
    void read_known_hashes(const std::string& path);

    /// Writes one line: the report with "DUID" and "received_at" (UTC) beside its members, and
    /// makes its hash known. The line has left the process when this returns. Throws
    /// std::runtime_error.
    void keep(const Json::Value& report, const Json::Value& header);

    /// Whether a content with that hash was kept, or made known.
    bool knows(const std::string& hash) const { return _hashes.count(hash) != 0; }

private:
    std::string _path;
    std::ofstream _file;
    std::set<std::string> _hashes;
};

}  // namespace collector
