#include "support/device_root.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <json/reader.h>
#include <json/writer.h>

namespace test_support {
namespace {

namespace fs = std::filesystem;

// Changes one of the platform's files, or makes it.
template <class Change>
void edit(const char* name, Change change) {
    const fs::path path = platform_dir() / name;
    Json::Value document(Json::objectValue);
    if (std::ifstream file(path); file) {
        file >> document;
    }
    change(document);
    write_text(path, Json::writeString(Json::StreamWriterBuilder(), document));
}

}  // namespace

fs::path scratch_root() {
    return std::getenv("TEV_SCRATCH_ROOT");
}

fs::path source_dir() {
    return TEV_SOURCE_DIR;
}

std::vector<std::string> built_program(const std::string& path,
                                       const std::vector<std::string>& arguments) {
    const char* emulator = std::getenv("TEV_EMULATOR");
    std::istringstream words(emulator != nullptr ? emulator : "");
    std::vector<std::string> command(std::istream_iterator<std::string>(words), {});
    command.push_back(path);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

fs::path device_dir() {
    return TEV_DEVICE_DIR;
}

fs::path data_dir() {
    return "/opt/data/dpm/dplugins/tev-reporter-plugin";
}

fs::path lock_dir() {
    return "/run/user/5001";
}

fs::path platform_dir() {
    return std::getenv("TEV_PLATFORM_DIR");
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
    if (!(file << text << std::flush)) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

void reset_device() {
    for (const fs::path& directory : {fs::path("/opt/data"), lock_dir(), platform_dir()}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
            fs::remove_all(entry);
        }
    }
    fs::create_directories(data_dir());
    write_text(lock_dir() / "tev_reporter_db_file_lock", "");
    write_text(lock_dir() / "tev_reporter_stats_file_lock", "");
}

void install_plugin() {
    for (const char* part : {"config", "lua", "lib"}) {
        fs::copy(device_dir().string() + (data_dir() / part).string(), data_dir() / part,
                 fs::copy_options::recursive);
    }
}

void set_vconf(const std::string& key, const Json::Value& value) {
    edit("vconf.json", [&](Json::Value& settings) { settings[key] = value; });
}

void set_system_info(const std::string& section, const std::string& key, const Json::Value& value) {
    edit("system_info.json", [&](Json::Value& facts) { facts[section][key] = value; });
}

}  // namespace test_support
