#include <algorithm>

#include "common.h"
#include "fuzz.h"
#include "journal.h"
#include "json_io.h"
#include "stats.h"

namespace {

const std::string data_dir = "/opt/data/dpm/dplugins/tev-reporter-plugin/";

// Null when the text is no object.
Json::Value document(const std::string& text) {
    Json::Value value;
    const bool reads = reporter::json_read(text, value, reporter::json_comments::skip);
    return reads && value.isObject() ? value : Json::Value();
}

void count_in(const std::string& file) {
    const std::string path = data_dir + "stats";
    reporter::write_file(path, file);
    assert(reporter::stats(path).add_event("sent", 3, {}));
    Json::Value before = document(file);
    const Json::Value after = document(reporter::read_file(path));
    assert(after["last_wrote_at"].isString());
    assert(before.isObject() || after["first_start_at"].isString());
    assert(after.size() >= before.size());
    const Json::Value counter = before["sent"].isObject() ? before["sent"]["-"] : Json::Value();
    const bool adds = counter.isInt64() && counter.asInt64() <= Json::Value::maxInt64 - 3;
    assert(after["sent"]["-"].asInt64() >= (adds ? counter.asInt64() + 3 : 3));
}

void add_line_to(const std::string& file, const std::string& text) {
    reporter::journal events(data_dir + "journal", 10, 100);
    reporter::write_file(events.get_path(), file);
    assert(events.add("sender", text));
    const bool full = std::count(file.begin(), file.end(), '\n') >= 10;
    const std::string kept = full ? file.substr(file.find('\n') + 1) : file;
    const std::string after = reporter::read_file(events.get_path());
    assert(after.compare(0, kept.size(), kept) == 0);
    assert(after.size() - kept.size() <= 101 && after.find('\n', kept.size()) == after.size() - 1);
}

}  // namespace

// Input: the text of an event in the first line, the file as it was found in the others.
void fuzz_one(const std::string& input) {
    std::string file = input;
    const std::string event = take_line(file);
    // The JSON library writes names up to their first zero byte only.
    if (file.find('\0') == std::string::npos && file.find("u0000") == std::string::npos) {
        count_in(file);
    }
    add_line_to(file, event);
}
