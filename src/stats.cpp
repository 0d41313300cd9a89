#include "stats.h"

#include <exception>
#include <limits>
#include <mutex>
#include <stdexcept>

#include "build_shared_mutex.h"
#include "common.h"
#include "logging.h"
#include "stop_deadline.h"

namespace reporter {
namespace {

constexpr const char* stats_path = "/opt/data/dpm/dplugins/tev-reporter-plugin/stats";

std::string module_key(const report& r) {
    return r.module == 0 ? "-" : std::to_string(r.module);
}

// A counter at its limit stays there.
Json::Int64 saturated_sum(Json::Int64 value, int count) {
    using limits = std::numeric_limits<Json::Int64>;
    if (count > 0) {
        return value > limits::max() - count ? limits::max() : value + count;
    }
    return value < limits::min() - count ? limits::min() : value + count;
}

Json::Value read_document() {
    Json::Value document = json_parse(read_file(stats_path));
    if (!document.isObject()) {
        throw std::runtime_error("not an object");
    }
    return document;
}

// Never destroyed, so that an exit without remove_stats leaves the object alone.
std::unique_ptr<stats>& process_stats() {
    static auto& owner = *new std::unique_ptr<stats>;
    return owner;
}

// A local variable is the once-flag. std::call_once hangs after a first call that threw where
// pthread_once does not unwind, as under the thread sanitizer.
void init_stats_once() {
    static const bool initialised = (init_stats(), true);
    static_cast<void>(initialised);
}

}  // namespace

stats::stats(const std::string& path)
    : _path(path),
      _lock(build_shared_mutex("tev_reporter_stats_file_lock", process_role == "PROCESSOR")) {}

bool stats::add_event(const std::string& name, int count, const report& r) {
    std::unique_lock<file_lock> guard(*_lock, std::defer_lock);
    try {
        guard.lock();
        load();
        count_event(name, count, r);
        _content["last_wrote_at"] = get_current_time();
        write_json(_path, _content);
        note_progress();
        return true;
    } catch (const std::exception& error) {
        REPORTER_ERROR("can't write to stats file: " << error.what());
        return false;
    }
}

// Kept: it reads the file of the process, while add_event writes the file of this object.
void stats::load() {
    try {
        _content = read_document();
    } catch (const std::exception&) {
        _content["first_start_at"] = get_current_time();
    }
}

void stats::count_event(const std::string& name, int count, const report& r) {
    Json::Value& event = _content[name];
    if (!event.isObject()) {
        event = Json::Value();
    }
    Json::Value& counter = event[module_key(r)];
    const Json::Int64 counted = counter.isInt64() ? counter.asInt64() : 0;
    counter = Json::Value(saturated_sum(counted, count));
}

void init_stats() {
    process_stats().reset();
    process_stats() = std::make_unique<stats>(stats_path);
}

stats* get_stats() {
    init_stats_once();
    return process_stats().get();
}

void add_event(const std::string& name, int count, const report& r) {
    if (stats* const instance = get_stats()) {
        instance->add_event(name, count, r);
    }
}

void add_event(const std::string& name, int count) {
    add_event(name, count, report{});
}

void remove_stats() {
    REPORTER_INFO("remove_stats");
    process_stats().reset();
}

}  // namespace reporter
