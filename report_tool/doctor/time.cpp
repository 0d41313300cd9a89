#include <ctime>

#include <algorithm>

#include "doctor/examination.h"
#include "output.h"

namespace report_tool::doctor {
namespace {

// 2026-10-01: the first release. A clock that shows less was never set.
constexpr long long first_release = 1790812800;
constexpr long long day_seconds = 86400;

const char* const advice = "set the clock, and see why the device did not";

}  // namespace

void examine_time(examination& whole) {
    group points(whole, "time");
    const long long now = std::time(nullptr);
    const auto& known = whole.certificates;
    const std::string found = "the clock shows " + readable_time(now);
    const auto is_over = [now](const validity& one) { return now > one.until; };
    const auto is_ahead = [now](const validity& one) { return now < one.from; };
    if (now < first_release) {
        points.fault("clock", "never-set", found + ", a time before the agent was made", advice);
    } else if (whole.newest_report && now < *whole.newest_report - day_seconds) {
        points.warning(
            "clock", "behind-reports",
            found + ", and the newest report came at " + readable_time(*whole.newest_report),
            advice);
    } else if (std::any_of(known.begin(), known.end(), is_ahead)) {
        const auto& one = *std::find_if(known.begin(), known.end(), is_ahead);
        points.fault("clock", "behind-certificate",
                     found + ", and " + one.name + " holds from " + readable_time(one.from),
                     advice);
    } else if (!known.empty() && std::all_of(known.begin(), known.end(), is_over)) {
        points.fault("clock", "ahead",
                     found + ", when none of the " + std::to_string(known.size()) +
                         " certificates of this device holds any more",
                     std::string(advice) + "; where it is right, all of them are to be renewed");
    } else {
        points.ok("clock", found);
    }
}

}  // namespace report_tool::doctor
