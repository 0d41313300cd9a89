#pragma once

#include <string>
#include <utility>
#include <vector>

namespace report_tool {

/// Ids of set-aside stores that were gone through, on file in the data directory. Ids are never
/// used twice, also not by another store, so they say which reports are done whatever the file is
/// called from which they come. One process at a time.
class recovered_ids {
public:
    /// Throws std::runtime_error, also when another process has it open.
    recovered_ids();
    recovered_ids(const recovered_ids&) = delete;
    recovered_ids& operator=(const recovered_ids&) = delete;
    ~recovered_ids();

    /// The id itself where it is not done, or the one behind the range in which it is.
    double behind(double id) const;
    /// All from the first to the last are done. On the medium when it returns.
    void add(double first, double last);

private:
    std::string _path;
    int _descriptor;
    std::vector<std::pair<double, double>> _ranges;
};

}  // namespace report_tool
