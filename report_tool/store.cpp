#include "store.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fstream>
#include <functional>
#include <stdexcept>

#include "child.h"
#include "configuration.h"
#include "data_dir.h"
#include "failure.h"
#include "json_io.h"
#include "lock.h"
#include "lua_sandbox.h"
#include "output.h"
#include "storage/open_reports_storage.h"

namespace report_tool {
namespace {

// Places in the first 100 bytes of an SQLite database.
constexpr std::size_t header_size = 100;
constexpr std::size_t write_version = 18;
constexpr char write_ahead_log = 2;

constexpr unsigned int longest_look_seconds = 60;
// The one argument that is text.
struct question_text {
    std::string text;
    void export_to_lua(reporter::lua::lua_state& state) const {
        lua_pushlstring(state.get_lua(), text.data(), text.size());
    }
};

std::string first_bytes(const std::string& path, std::size_t size) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes(size, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(size));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

// What the work with the storage script gives.
std::string ask_child(unsigned int seconds, const std::function<std::string()>& work) {
    const child_answer answer = in_child(seconds, work);
    switch (answer.how) {
        case child_answer::end::too_late:
            throw std::runtime_error("no answer within " + std::to_string(seconds) + " s");
        case child_answer::end::died:
            throw std::runtime_error("the storage script ended the process");
        case child_answer::end::threw:
            throw std::runtime_error(answer.text);
        case child_answer::end::returned:
            break;
    }
    return answer.text;
}

Json::Value parse_answer(const std::string& text) {
    Json::Value content;
    if (!reporter::json_read(text, content, reporter::json_comments::skip) || !content.isObject()) {
        throw std::runtime_error("the storage script's answer is no JSON object");
    }
    return content;
}

}  // namespace

reporter::config_helper load_device() {
    try {
        return reporter::load_configuration(
            reporter::config_dir, reporter::REPORTER_DATA_DIR + "lua", {reporter::storage_script});
    } catch (const std::exception& error) {
        throw std::runtime_error(error.what() + std::string(see_doctor));
    }
}

store_obstacle find_store_obstacle() {
    const std::string path = reporter::REPORTER_DATA_DIR + "db_reports";
    if (access(path.c_str(), R_OK) != 0) {
        return {errno == ENOENT ? "absent" : "unreadable", path + ": " + error_text(errno)};
    }
    const std::string header = first_bytes(path, header_size);
    if (header.empty()) {
        return {"empty", path + " is empty"};
    }
    if (header.size() < header_size ||
        header.compare(0, 16, std::string("SQLite format 3\0", 16))) {
        return {"damaged", path + " is no SQLite database"};
    }
    // What is half done begins the journal; a finished write has wiped its head.
    const std::string journal = first_bytes(path + "-journal", 1);
    if (!journal.empty() && journal[0] != '\0') {
        return {"unfinished", path + "-journal holds an unfinished write"};
    }
    if (header[write_version] == write_ahead_log) {
        return {"foreign", path + " has a write-ahead log, which the store never has"};
    }
    return {};
}

Json::Value inspect_store(const reporter::config_helper& config, const std::string& script,
                          const std::string& question, unsigned int seconds) {
    const std::string answer = ask_child(seconds, [&] {
        reporter::lua_sandbox sandbox(config, script);
        if (!sandbox.get().is_function("inspect")) {
            throw std::runtime_error(
                "the storage script has no function inspect, which looks on only");
        }
        return sandbox.get().call<std::string>("inspect", question_text{question});
    });
    return parse_answer(answer);
}

Json::Value call_script(reporter::lua_sandbox& sandbox, const char* function,
                        const std::string& text) {
    return parse_answer(sandbox.get().call<std::string>(function, question_text{text}));
}

Json::Value ask_store(const std::string& question) {
    const auto config = load_device();
    const held_lock lock(store_lock);
    if (const store_obstacle obstacle = find_store_obstacle(); !obstacle.cause.empty()) {
        throw failure(obstacle.cause, obstacle.text + see_doctor);
    }
    return inspect_store(config, config.get_script(reporter::storage_script).content, question,
                         longest_look_seconds);
}

Json::Value ask_store_if_any(const std::string& question) {
    try {
        return ask_store(question);
    } catch (const failure& obstacle) {
        if (obstacle.cause != "absent" && obstacle.cause != "empty") {
            throw;
        }
    }
    return Json::Value(Json::objectValue);
}

bool can_inspect() {
    const auto config = load_device();
    const held_lock lock(store_lock);
    return ask_child(longest_look_seconds, [&] {
               const std::string script = config.get_script(reporter::storage_script).content;
               reporter::lua_sandbox sandbox(config, script);
               return std::string(sandbox.get().is_function("inspect") ? "yes" : "no");
           }) == "yes";
}

std::shared_ptr<reporter::reports_storage> open_store() {
    try {
        return reporter::open_reports_storage(false);
    } catch (const std::exception& error) {
        throw std::runtime_error(error.what() + std::string(see_doctor));
    }
}

}  // namespace report_tool
