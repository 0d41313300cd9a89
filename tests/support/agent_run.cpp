#include "support/agent_run.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include "configuration.h"
#include "json_io.h"
#include "storage/reports_storage.h"

namespace test_support {
namespace {

bool fits(const std::string& line, const std::string& pattern) {
    const std::size_t size = pattern.size() - 1;
    return pattern[size] == '*' ? line.compare(0, size, pattern, 0, size) == 0 : line == pattern;
}

Json::Value parsed(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(reporter::json_read(text, value, reporter::json_comments::skip)) << text;
    return value;
}

}  // namespace

strings joined(strings first, const strings& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

strings lines_of(const std::string& text) {
    strings lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string pki_dir() {
    return device_dir() / "pki";
}

std::string query(const std::string& sql, const std::filesystem::path& database) {
    child_process sqlite({"sqlite3", "-bail", database, sql});
    EXPECT_EQ(sqlite.wait(), 0) << sqlite.output();
    return sqlite.output().substr(0, sqlite.output().find_last_not_of('\n') + 1);
}

pass::pass(child_process& agent) : status(agent.wait()) {
    for (const std::string& line : lines_of(agent.output())) {
        log.push_back(message_in(line));
    }
}

std::string pass::missing(const strings& lines) const {
    auto from = log.begin();
    for (const std::string& line : lines) {
        from = std::find_if(from, log.end(), [&](const auto& other) { return fits(other, line); });
        if (from == log.end()) {
            return line;
        }
        ++from;
    }
    return "";
}

long pass::count(const std::string& line) const {
    return std::count_if(log.begin(), log.end(), [&](const auto& l) { return fits(l, line); });
}

void pass_test::SetUp() {
    install_plugin();
    const auto items = platform_dir() / "secure_storage";
    write_text(items / "reporter-crt", read_text(pki_dir() + "/client.pem"));
    write_text(items / "reporter-key", read_text(pki_dir() + "/client.key"));
    write_text("/opt/data/cert/vdca.pem", read_text(pki_dir() + "/ca.pem"));
    write_text(platform_dir() / "vconf.json", read_text(device_dir() / "platform" / "vconf.json"));
    config = parsed(read_text(data_dir() / "config" / "config.def"));
}

void pass_test::save(const reporter::report& report) {
    const std::string script = read_text(data_dir() / "lua" / "processor_extension_V1.lua");
    const auto storage = reporter::reports_storage::make({{config, {}}, script}, true);
    EXPECT_NE(storage->save_report(report), 0);
}

void pass_test::save(int count, const std::string& content) {
    for (int number = 0; number < count; ++number) {
        reporter::report report{7, 1, {content.begin(), content.end()}, 0};
        report.content.push_back(static_cast<unsigned char>('a' + number));
        save(report);
    }
}

void pass_test::use_collector(const strings& options) {
    const std::string pki = pki_dir(), store = scratch_root() / "received";
    std::filesystem::remove(store);
    // A program of this machine, even where the agent is emulated.
    const strings command = {TEV_COLLECTOR,
                             "--ca",
                             pki + "/ca.pem",
                             "--cert",
                             pki + "/server.pem",
                             "--key",
                             pki + "/server.key",
                             "--store",
                             store};
    _collector.emplace(joined(command, options));
    _collector->wait_for("\n");
    use_port(std::stoi(_collector->output().substr(_collector->output().rfind(':') + 1)));
}

std::vector<Json::Value> pass_test::received() {
    const Json::Value rows =
        parsed("[" +
               query("SELECT json_object('DUID', duid, 'uid', uid, 'module', module, "
                     "'aggregationid', aggregationid, 'count', count, 'content', content, "
                     "'repeats', repeats) || ',' FROM shown_reports",
                     scratch_root() / "received") +
               "null]");
    return {rows.begin(), --rows.end()};
}

strings pass_test::requests() const {
    static const std::regex request("\\d+ POST (\\S+) bytes=\\d+ entries=(\\d+) status=(\\d+) .*");
    strings requests = lines_of(_collector->output());
    requests.erase(requests.begin());
    for (std::string& line : requests) {
        line = std::regex_replace(line, request, "$1 $2 $3");
    }
    return requests;
}

strings pass_test::agent() {
    write_text(data_dir() / "config" / "config.def", reporter::json_styled(config));
    return joined({"env", "no_proxy=127.0.0.1", "LD_PRELOAD=" + skip_pauses()},
                  built_program(TEV_AGENT));
}

std::string skip_pauses() {
    const auto link = scratch_root() / "skip_pauses.so";
    std::error_code there_already;
    std::filesystem::create_symlink(TEV_SKIP_PAUSES, link, there_already);
    return link;
}

pass pass_test::end_of(child_process&& agent) {
    pass ended(agent);
    const std::string output = agent.output();
    EXPECT_EQ(ended.status, 0) << output;
    const std::string passphrase = read_text(pki_dir() + "/client.pem").substr(28, 64);
    const std::string key = lines_of(read_text(pki_dir() + "/client.key")).at(2);
    EXPECT_EQ(output.find(passphrase), std::string::npos);
    EXPECT_EQ(output.find(key), std::string::npos);
    return ended;
}

void pass_test::expect(const std::string& line, int left) {
    SCOPED_TRACE(line);
    EXPECT_EQ(run_pass().missing({line}), "");
    EXPECT_EQ(stored(), left);
}

Json::Value pass_test::stats() {
    const auto file = data_dir() / "stats";
    return std::filesystem::exists(file) ? parsed(read_text(file)) : Json::Value();
}

}  // namespace test_support
