#include "common.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
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

// The path behind symbolic links, so that they are not replaced.
std::string real_path(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           std::free);
    return real != nullptr ? real.get() : path;
}

// Owner, group and mode; a label of a mandatory access control is that of the process.
bool take_over_access(const std::string& from, const std::string& to) {
    struct stat old = {};
    if (stat(from.c_str(), &old) != 0) {
        return true;
    }
    return chown(to.c_str(), old.st_uid, old.st_gid) == 0 && chmod(to.c_str(), old.st_mode) == 0;
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

// The new content is written beside the file and renamed over it, so that neither a full disk nor
// the end of the process in between costs the earlier content. Emptying a file needs no room and is
// done in place, and so is everything where the directory does not allow the other way.
void write_file(const std::string& path, const std::string& content) {
    const std::string target = real_path(path);
    const std::string temporary = target + ".tmp";
    std::ofstream out;
    if (!content.empty()) {
        out.open(temporary, std::ios::binary | std::ios::trunc);
    }
    if (!out.is_open()) {
        truncate_and_write(target, content);
        return;
    }
    if (!write_all(out, content)) {
        unlink(temporary.c_str());
        throw_unwritten(path);
    }
    if (!take_over_access(target, temporary) ||
        std::rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        truncate_and_write(target, content);
    }
}

void append_to_file(const std::string& path, const std::string& content) {
    const long long size_before = std::max(size_file(path), 0LL);
    std::ofstream out(path, std::ios::binary | std::ios::app);
    if (!out.is_open() || write_all(out, content)) {
        return;
    }
    // Half a record is worse than none.
    static_cast<void>(!truncate(path.c_str(), static_cast<off_t>(size_before)));
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
