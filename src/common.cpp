#include "common.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <json/value.h>
#include <boost/date_time/posix_time/posix_time.hpp>

#include "json_io.h"

namespace reporter {
namespace {

[[noreturn]] void throw_unreadable(const std::string& path) {
    throw std::runtime_error(path + " :file doesn't exist");
}

[[noreturn]] void throw_unwritten(const std::string& path) {
    throw std::runtime_error(path + " :can't be written");
}

// True when every byte reached the file system.
bool write_all(std::ofstream& out, const std::string& content) {
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    return !out.fail();
}

void truncate_and_write(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (out.is_open() && !write_all(out, content)) {
        throw_unwritten(path);
    }
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
    } catch (const std::exception&) {
        return fallback;
    }
}

bool file_is_equal(const std::string& path, const std::string& content) {
    try {
        return read_file(path) == content;
    } catch (const std::exception&) {
        return false;
    }
}

// The new content is written beside the file and renamed over it, so that neither a full disk nor
// a power cut in between costs the earlier content. Emptying a file needs no room and is done in
// place, and so is everything where the directory takes no new file.
void write_file(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".tmp";
    std::ofstream out;
    if (!content.empty()) {
        out.open(temporary, std::ios::binary | std::ios::trunc);
    }
    if (!out.is_open()) {
        truncate_and_write(path, content);
        return;
    }
    const bool written = write_all(out, content);
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
    }
    if (!written) {
        throw_unwritten(path);
    }
}

void append_to_file(const std::string& path, const std::string& content) {
    const long long size_before = size_file(path);
    std::ofstream out(path, std::ios::binary | std::ios::app);
    if (!out.is_open() || write_all(out, content)) {
        return;
    }
    // Half a record is worse than none.
    if (size_before >= 0) {
        std::error_code ignored;
        std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size_before), ignored);
    }
    throw_unwritten(path);
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
