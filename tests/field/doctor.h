#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>

#include "file_lock.h"
#include "json_io.h"
#include "support/agent_run.h"

namespace test_support {

namespace fs = std::filesystem;

const std::string CA = "/opt/data/cert/vdca.pem";
const std::string PACKAGE = "/usr/share/sdp/tev-reporter-plugin-key/00000051.bin";

inline std::string pki(const std::string& name) {
    return read_text(pki_dir() + "/" + name);
}

/// One way to spoil a device: what doctor then says, as "group.name state cause", and its status.
struct fault {
    std::string said;
    int status;
    std::function<void()> spoil;
    strings environment{};
};

/// A device where all is well, which each fault spoils in its way.
class doctor_test : public pass_test {
protected:
    void SetUp() override {
        pass_test::SetUp();
        fs::remove_all(fs::path(PACKAGE).parent_path());
        save(1);
        agent();
    }

    template <class Value>
    void set(const char* name, Value value) {
        sender()[name] = value;
        agent();
    }
    static fs::path item(const char* name) { return platform_dir() / "secure_storage" / name; }
    static fs::path script() { return data_dir() / "lua" / "processor_extension_V1.lua"; }
    static void in_script(const std::string& from, const std::string& to) {
        std::string text = read_text(script());
        text.replace(text.find(from), from.size(), to);
        write_text(script(), text);
    }
    /// Another program with the store open in a transaction.
    void hold_store(const char* change) {
        _shell.emplace(strings{"sqlite3", data_dir() / "db_reports", "PRAGMA cache_size = 1",
                               "BEGIN EXCLUSIVE", change, ".shell echo held", ".read /dev/ptmx"});
        _shell->wait_for("held");
    }
    void hold(const char* name) { _lock.emplace("open_only", name).lock(); }

    /// Every file of the device with its size, mode and time of change.
    static std::string device() {
        std::string state;
        for (const fs::path& root : {fs::path("/opt/data"), lock_dir(), platform_dir()}) {
            for (const auto& entry : fs::recursive_directory_iterator(root)) {
                struct stat file {};
                lstat(entry.path().c_str(), &file);
                state += entry.path().string() + " " + std::to_string(file.st_size) + " " +
                         std::to_string(file.st_mode) + " " + std::to_string(file.st_mtim.tv_sec) +
                         "." + std::to_string(file.st_mtim.tv_nsec) + "\n";
            }
        }
        return state;
    }

    /// Output and status of the command, which changes nothing and tells no secret.
    static std::pair<std::string, int> run(const strings& environment, const strings& arguments) {
        const std::string before = device();
        const strings command = built_program(TEV_REPORT, joined({"doctor"}, arguments));
        child_process tool(joined(joined({"env"}, environment),
                                  joined({"env", "LD_PRELOAD=" TEV_PRELOAD, "TZ=UTC"}, command)));
        const int status = tool.wait();
        const std::string output = tool.output();
        EXPECT_EQ(device(), before);
        EXPECT_EQ(output.find(pki("client.pem").substr(28, 64)), std::string::npos);
        for (const char* key : {"client.key", "server.key", "client-other-ca.key"}) {
            EXPECT_EQ(output.find(lines_of(pki(key)).at(2)), std::string::npos);
        }
        return {output, status};
    }

    void expect(const fault& fault, const strings& arguments) {
        SCOPED_TRACE(fault.said);
        const auto [output, status] = run(fault.environment, joined({"--json"}, arguments));
        Json::Value document;
        ASSERT_TRUE(reporter::json_read(output, document, reporter::json_comments::skip)) << output;
        std::string said;
        for (const Json::Value& point : document["points"]) {
            said += "\n" + point["group"].asString() + "." + point["name"].asString() + " " +
                    point["state"].asString() + " " + point["cause"].asString() + " | " +
                    point["found"].asString() + " | " + point["advice"].asString();
        }
        EXPECT_NE(said.find("\n" + fault.said), std::string::npos) << said;
        EXPECT_EQ(status, fault.status) << said;
        EXPECT_EQ(document["status"].asInt(), status);
    }

    void expect_each(const std::vector<fault>& faults, const strings& arguments = {"--offline"}) {
        for (const fault& fault : faults) {
            _shell.reset();
            if (_lock) {
                _lock->unlock();
                _lock.reset();
            }
            reset_device();
            SetUp();
            fault.spoil();
            expect(fault, arguments);
        }
    }

    std::optional<file_lock> _lock;
    std::optional<child_process> _shell;
};

}  // namespace test_support
