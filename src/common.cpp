#include "common.h"

#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>

#include <json/value.h>
#include <boost/date_time/posix_time/posix_time.hpp>

#include "json_io.h"

namespace reporter {
namespace {

[[noreturn]] void throw_unreadable(const std::string& path) {
    throw std::runtime_error(path + " :file doesn't exist");
}

}  // namespace

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) {
        throw_unreadable(path);
    }
    std::string content;
    char buffer[4096];
    while (in.read(buffer, sizeof buffer), in.gcount() > 0) {
        content.append(buffer, static_cast<std::size_t>(in.gcount()));
    }
    // A directory opens, but reading it fails.
    if (in.bad()) {
        throw_unreadable(path);
    }
    return content;
}

std::string read_file_default(const std::string& path, const std::string& fallback) {
    try {
        return read_file(path);
    } catch (...) {
        return fallback;
    }
}

bool file_is_equal(const std::string& path, const std::string& content) {
    try {
        return read_file(path) == content;
    } catch (...) {
        return false;
    }
}

void write_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

void append_to_file(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::app) << content;
}

long long size_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return static_cast<long long>(in.tellg());
}

void write_json(const std::string& path, const Json::Value& value) {
    write_file(path, json_styled(value));
}

Json::Value json_parse(const std::string& text) {
    static std::mutex reader_mutex;
    const std::lock_guard<std::mutex> guard(reader_mutex);
    Json::Value value;
    if (!json_read(text, value, json_comments::skip)) {
        throw std::runtime_error("can't parse json");
    }
    return value;
}

std::string get_current_time() {
    std::ostringstream text;
    text << boost::posix_time::second_clock::local_time();
    return text.str();
}

}  // namespace reporter
