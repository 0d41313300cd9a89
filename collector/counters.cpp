#include "counters.h"

#include <limits>
#include <sstream>

namespace collector {
namespace {

constexpr int BAD_REQUEST = 400;

unsigned refused(const Json::Value& codes) {
    unsigned count = 0;
    for (const Json::Value& code : codes) {
        count += code == BAD_REQUEST ? 1 : 0;
    }
    return count;
}

}  // namespace

void counters::add(const std::string& path, const decision& made,
                   std::chrono::duration<double> taken) {
    const std::lock_guard<std::mutex> lock(_mutex);
    const std::string labels = "{path=\"" + path + "\",status=\"" + std::to_string(made.status);
    _values["collector_requests_total" + labels + "\"}"] += 1;
    _values["collector_request_seconds_total{path=\"" + path + "\"}"] += taken.count();
    _values["collector_reports_kept_total"] += made.done.kept;
    _values["collector_reports_repeated_total"] += made.done.repeated;
    _values["collector_reports_cloned_total"] += static_cast<double>(made.done.cloned.size());
    _values["collector_reports_refused_total"] += refused(made.codes);
}

std::string counters::text() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    std::ostringstream text;
    text.precision(std::numeric_limits<double>::digits10);
    for (const auto& [name, value] : _values) {
        text << name << ' ' << value << '\n';
    }
    return text.str();
}

}  // namespace collector
