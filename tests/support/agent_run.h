#pragma once

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>

#include "report.h"
#include "support/child_process.h"
#include "support/device_root.h"

namespace test_support {

using strings = std::vector<std::string>;

strings joined(strings first, const strings& second);
strings lines_of(const std::string& text);

/// Where keys and certificates are, see tools/make-pki --faults.
std::string pki_dir();

/// Path of the library that skips pauses; without blanks, as the loader splits its list there.
std::string skip_pauses();

/// What the sqlite3 command answers about the store, or another database.
std::string query(const std::string& sql,
                  const std::filesystem::path& database = data_dir() / "db_reports");

/// How one life of the agent went.
struct pass {
    explicit pass(child_process& agent);

    /// The first of the lines that the log lacks, or has before an earlier one; "" when all are
    /// there in order. A line is "I " and the text of an information record; a final * stands for
    /// any ending.
    std::string missing(const strings& lines) const;
    long count(const std::string& line) const;

    int status;
    strings log;
};

/// The agent on a device where all is well and reports are due at once. Each test spoils what it is
/// about. The agent's pauses take no time.
class pass_test : public device_test {
protected:
    void SetUp() override;

    void save(const reporter::report& report);
    /// Reports of module 7, no two alike.
    void save(int count, const std::string& content = "content ");

    /// From now on the agent sends to this port, or to a collector with these additional options.
    void use_port(int port) { sender()["server_port"] = std::to_string(port); }
    void use_collector(const strings& options = {});
    /// What the collector has taken, and what it was asked: path, entries, status.
    static std::vector<Json::Value> received();
    strings requests() const;

    /// Command of the agent with the present configuration.
    strings agent();
    /// One life, which must end in order and leave no secret in the log.
    pass run_pass() { return end_of(child_process(agent())); }
    static pass end_of(child_process&& agent);
    /// One life that writes the line and leaves so many reports in the store.
    void expect(const std::string& line, int left);

    static int stored() { return std::stoi(query("SELECT count(*) FROM reports")); }
    /// The statistics file; null when there is none.
    static Json::Value stats();

    Json::Value& sender() { return config["sender"]; }
    Json::Value config;

private:
    std::optional<child_process> _collector;
};

}  // namespace test_support
