#include "support/device_root.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <json/reader.h>
#include <json/writer.h>

namespace test_support {
namespace {

namespace fs = std::filesystem;

fs::path directory_from(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr) {
        throw std::runtime_error(std::string(variable) + " is not set: not in a device root");
    }
    return value;
}

void remove_entries(const fs::path& directory) {
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        fs::remove_all(entry);
    }
}

void copy_into(const fs::path& directory, const fs::path& source) {
    fs::create_directories(directory);
    fs::copy(source_dir() / source, directory,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

template <class Change>
void change_document(const fs::path& path, Change change) {
    Json::Value document(Json::objectValue);
    if (fs::exists(path)) {
        std::ifstream(path) >> document;
    }
    change(document);
    write_text(path, Json::writeString(Json::StreamWriterBuilder(), document));
}

void set_member(Json::Value& object, const std::string& key, const Json::Value& value) {
    if (value.isNull()) {
        object.removeMember(key);
    } else {
        object[key] = value;
    }
}

}  // namespace

fs::path scratch_root() {
    return directory_from("TEV_TEST_ROOT");
}

fs::path source_dir() {
    return TEV_SOURCE_DIR;
}

fs::path data_dir() {
    return "/opt/data/dpm/dplugins/tev-reporter-plugin";
}

fs::path lock_dir() {
    return "/run/user/5001";
}

fs::path platform_dir() {
    return directory_from("TEV_PLATFORM_DIR");
}

std::string read_text(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

void reset_device() {
    for (const fs::path& directory : {fs::path("/opt/data"), lock_dir(), platform_dir()}) {
        remove_entries(directory);
    }
    fs::create_directories(data_dir());
    write_text(lock_dir() / "tev_reporter_db_file_lock", "");
    write_text(lock_dir() / "tev_reporter_stats_file_lock", "");
}

void install_plugin() {
    copy_into(data_dir() / "config", "config/config.def");
    copy_into(data_dir() / "lua", "scripts/processor_extension_V1.lua");
    copy_into(data_dir() / "lib" / "lua", "scripts/lib");
}

void set_vconf(const std::string& key, const Json::Value& value) {
    change_document(platform_dir() / "vconf.json",
                    [&](Json::Value& settings) { set_member(settings, key, value); });
}

void set_system_info(const std::string& section, const std::string& key, const Json::Value& value) {
    change_document(platform_dir() / "system_info.json",
                    [&](Json::Value& facts) { set_member(facts[section], key, value); });
}

}  // namespace test_support
