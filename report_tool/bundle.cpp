#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <json/value.h>
#include <CLI/CLI.hpp>

#include "child.h"
#include "command.h"
#include "common.h"
#include "data_dir.h"
#include "doctor/certificate.h"
#include "doctor/examination.h"
#include "internal/transport/Storage.h"
#include "json_io.h"
#include "output.h"
#include "owner.h"
#include "pass_log.h"
#include "store.h"
#include "sys_info.h"
#include "tar_gz.h"
#include "veil.h"

namespace report_tool {
namespace {

struct wishes {
    std::string file;
    std::string log;
    bool yes = false;
    doctor::options doctor;
};

using files = std::map<std::string, std::string>;

// A file that is there once it is whole, and not at all otherwise.
class new_file {
public:
    explicit new_file(const std::string& path)
        : _path(path),
          _descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
        if (_descriptor < 0) {
            throw std::runtime_error(path + " cannot be made: " + error_text(errno) +
                                     (errno == EEXIST ? ". Name one that is not there yet" : ""));
        }
    }
    new_file(const new_file&) = delete;
    new_file& operator=(const new_file&) = delete;
    ~new_file() {
        close(_descriptor);
        if (!_whole) {
            unlink(_path.c_str());
        }
    }
    void write_all(const std::string& bytes) {
        _whole = report_tool::write_all(_descriptor, bytes);
        if (!_whole) {
            throw std::runtime_error(_path + " cannot be written: " + error_text(errno));
        }
    }

private:
    std::string _path;
    int _descriptor;
    bool _whole = false;
};

// The agent's records alone, of the last part of the file: other programs' are nobody's business.
std::string read_records(const std::string& path) {
    constexpr std::streamoff most_bytes = 8 << 20;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    file.seekg(size > most_bytes ? size - most_bytes : 0);
    std::string records;
    for (std::string line; std::getline(file, line);) {
        records += read_log_line(line) ? line + "\n" : "";
    }
    if (records.empty()) {
        throw std::runtime_error(path + " cannot be read, or holds no record of the agent");
    }
    return records;
}

void learn_identifiers(veil& hidden, const files& texts) {
    constexpr std::size_t shortest_line = 16;
    for (const auto& [name, value] : reporter::get_sys_info()) {
        if (name != "SUPPORT" && name != "LFD_BLOCK_BASIC_TRAFFIC_SUPPORT" && !value.empty()) {
            hidden.learn(value);
        }
    }
    using tev::common::CredentialPlaces;
    for (const char* item : {CredentialPlaces::key, CredentialPlaces::certificate}) {
        std::istringstream lines(tev::common::readInstalledItem(item).value_or(""));
        for (std::string line; std::getline(lines, line);) {
            if (line.size() >= shortest_line) {
                hidden.learn(line);
            }
        }
    }
    for (const auto& [name, text] : texts) {
        hidden.learn_from(text);
    }
}

// Member names stay, as they are of this program.
void hide_in(Json::Value& value, const veil& hidden) {
    if (value.isString()) {
        value = hidden.over(value.asString());
    }
    for (Json::Value& member : value) {
        hide_in(member, hidden);
    }
}

std::string hide_in_document(Json::Value document, const veil& hidden) {
    hide_in(document, hidden);
    return reporter::json_styled(document);
}

Json::Value ask_accounts() {
    try {
        return ask_store("store");
    } catch (const std::exception& error) {
        Json::Value nothing;
        nothing["error"] = error.what();
        return nothing;
    }
}

files collect(const wishes& wanted, const std::string& log) {
    files texts;
    for (const char* name :
         {"config/config.def", "config/config.rel", "config/config.stg", "journal", "stats"}) {
        const std::string path = reporter::REPORTER_DATA_DIR + name;
        if (access(path.c_str(), R_OK) == 0) {
            texts[name] = reporter::read_file_default(path, "");
        }
    }
    if (!log.empty()) {
        texts["log"] = log;
    }
    veil hidden(veil_key());
    learn_identifiers(hidden, texts);
    doctor::show_names_as([&hidden](const std::string& name) {
        hidden.learn(name);
        return hidden.hash_of(name);
    });
    const Json::Value examination = doctor_document(wanted.doctor);
    for (auto& [name, text] : texts) {
        text = hidden.over(text);
    }
    texts["doctor.json"] = hide_in_document(examination, hidden);
    texts["accounts.json"] = hide_in_document(ask_accounts(), hidden);
    return texts;
}

// What is in the archive, on a line of JSON, and behind it the archive.
std::string collect_as_owner(const wishes& wanted, const std::string& log) {
    become_owner();
    const files texts = collect(wanted, log);
    Json::Value sizes(Json::objectValue);
    for (const auto& [name, text] : texts) {
        sizes[name] = static_cast<Json::UInt64>(text.size());
    }
    return reporter::json_compact(sizes) + make_archive(texts);
}

void show_content(const Json::Value& sizes, const std::string& path) {
    std::cout << "goes into " << path << ":\n";
    table rows({"file", "bytes"});
    for (const std::string& name : sizes.getMemberNames()) {
        rows.add({name, sizes[name].asString()});
    }
    rows.print();
    std::cout << "What identifies the device stands there as a hash that only this device can "
                 "tell.\nNo report and no key is in it.\n";
}

int make_bundle(const wishes& wanted, const common_options& options) {
    if (geteuid() != 0) {
        become_owner();
    }
    const std::string log = wanted.log.empty() ? "" : read_records(wanted.log);
    // One that cannot be made is told at once; Ctrl-C leaves none behind.
    { const new_file attempt(wanted.file); }
    // The files here are those of whoever asks, those on the device its owner's.
    const child_answer answer = in_child(0, [&] { return collect_as_owner(wanted, log); });
    if (answer.how != child_answer::end::returned) {
        throw std::runtime_error(answer.how == child_answer::end::threw
                                     ? answer.text
                                     : "the process that collects the files died");
    }
    const std::size_t end = answer.text.find('\n') + 1;
    Json::Value sizes;
    reporter::json_read(answer.text.substr(0, end), sizes, reporter::json_comments::skip);
    options.json ? print_json(sizes) : show_content(sizes, wanted.file);
    if (!options.json && !wanted.yes && isatty(STDIN_FILENO) == 1 && !is_confirmed("Write it?")) {
        std::cout << "nothing is written\n";
        return done;
    }
    new_file(wanted.file).write_all(answer.text.substr(end));
    return done;
}

}  // namespace

command bundle_command() {
    const auto wanted = std::make_shared<wishes>();
    const auto add_options = [wanted](CLI::App& app) {
        app.add_option("FILE", wanted->file, "The archive that is made, as in device.tar.gz")
            ->required();
        app.add_option("--with-log", wanted->log,
                       "Adds the agent's records, of the last 8 MiB of a platform log");
        app.add_flag("--yes", wanted->yes, "Do not ask");
        app.add_flag("--offline", wanted->doctor.offline, "Leave the network out");
    };
    return {"bundle", "An archive to give away: what doctor says, settings and records",
            add_options,
            [wanted](const common_options& options) { return make_bundle(*wanted, options); }};
}

}  // namespace report_tool
