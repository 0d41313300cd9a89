#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

#include "request_judge.h"

namespace collector {

/// What this process has done since it began, for monitoring. All members may be called from
/// several threads at once.
class counters {
public:
    void add(const std::string& path, const decision& made, std::chrono::duration<double> taken);

    /// In the text format that Prometheus reads.
    std::string text() const;

private:
    mutable std::mutex _mutex;              ///< guards what follows
    std::map<std::string, double> _values;  ///< by name with labels, in the order of the text
};

}  // namespace collector
