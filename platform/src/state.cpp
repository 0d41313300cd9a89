#include "state.h"

#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>

namespace platform {
namespace {

Json::Value read_object(const std::string& file) {
    const std::string text = read_state_file(state_path(file));
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string error;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &error)) {
        throw std::runtime_error(file + ": " + error);
    }
    return root;
}

const Json::Value& member(const Json::Value& object, const std::string& key) {
    if (!object.isObject() || !object.isMember(key)) {
        throw std::runtime_error("no member " + key);
    }
    return object[key];
}

}  // namespace

std::string state_path(const std::string& name) {
    // Nothing changes the environment. NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* directory = getenv("TEV_PLATFORM_DIR");
    const bool named = directory != nullptr && *directory != '\0';
    return (named ? std::string(directory) : std::string("/etc/tev-platform")) + "/" + name;
}

std::string read_state_file(const std::string& path) {
    // Anything else could block the caller (a FIFO) or never end (a device).
    if (!std::filesystem::is_regular_file(path)) {
        throw std::runtime_error(path + ": not a regular file");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be opened");
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Json::Value read_member(const std::string& file, const char* section, const std::string& key) {
    const Json::Value root = read_object(file);
    return member(section == nullptr ? root : member(root, section), key);
}

int to_int(const Json::Value& value) {
    const bool integral = value.type() == Json::intValue || value.type() == Json::uintValue;
    if (!integral || !value.isInt()) {
        throw std::runtime_error("not an int");
    }
    return value.asInt();
}

bool to_bool(const Json::Value& value) {
    if (!value.isBool()) {
        throw std::runtime_error("not a boolean");
    }
    return value.asBool();
}

char* to_c_string(const Json::Value& value) {
    if (!value.isString()) {
        throw std::runtime_error("not a string");
    }
    const std::string text = value.asString();
    if (text.find('\0') != std::string::npos) {
        throw std::runtime_error("a zero byte in a C string");
    }
    char* copy = strdup(text.c_str());
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

std::string item_path(const std::string& item) {
    const bool leaves_directory = item.find('/') != std::string::npos || item == "..";
    if (item.empty() || item == "." || leaves_directory || item.find('\0') != std::string::npos) {
        throw std::runtime_error("no item name: " + item);
    }
    return state_path("secure_storage/" + item);
}

}  // namespace platform
