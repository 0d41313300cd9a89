#include <unistd.h>

#include <ctime>

#include "doctor.h"
#include "storage/reports_storage.h"

namespace {

using namespace test_support;

using doctor = doctor_test;

const strings OFFLINE = {"--offline"};

TEST_F(doctor, reads_configuration_and_gates) {
    const auto config_file = data_dir() / "config" / "config.def";
    const auto break_json = [&] {
        std::string text = read_text(config_file);
        text.erase(text.find(','), 1);
        write_text(config_file, text);
    };
    expect_each({
        {"gates.consent ok", 0, [] {}},
        {"gates.consent closed missing", 3,
         [] { set_vconf("db/menu/homedeck/homedatacontrol/defaultdisclaimeragree", 0); }},
        {"gates.sending closed off", 3, [&] { set("reporter_sending", false); }},
        {"gates.enrolment closed not-enrolled", 3, [&] { set("reporter_registration", true); }},
        {"configuration.file fault missing", 1, [&] { fs::remove(config_file); }},
        {"configuration.config.def fault json | line 3, column ", 1, break_json},
        {"configuration.file fault type", 1, [&] { write_text(config_file, "null"); }},
        {"configuration.config.def warning json", 0,
         [&] {
             fs::copy(config_file, data_dir() / "config" / "config.rel");
             break_json();
         }},
        {"configuration.sender.raports_path warning unknown | neither agent nor script reads it | "
         "perhaps sender.reports_path",
         0, [&] { set("raports_path", "x"); }},
        {"configuration.sender.server_port fault type", 1, [&] { set("server_port", 443); }},
        {"configuration.sender.reports_path warning type", 0, [&] { set("reports_path", 1); }},
        {"configuration.sender.sending_timeout fault type", 1,
         [&] { set("sending_timeout", "60"); }},
        {"configuration.processor.max_age_days warning type", 0,
         [&] {
             config["processor"]["max_age_days"] = "90";
             agent();
         }},
        {"configuration.sender.sending_timeout warning clamped | 5 is taken as 30", 0,
         [&] { set("sending_timeout", 5); }},
        {"configuration.processor.dispatching_time ok", 0,
         [&] {
             std::string often = "03:00";
             while (often.size() < 600000) {
                 often += ",03:00";
             }
             config["processor"]["dispatching_time"] = often;
             agent();
         }},
        {"configuration.sender fault missing", 1,
         [&] {
             config.removeMember("sender");
             agent();
         }},
        {"configuration.processor.dispatching_time fault missing", 1,
         [&] {
             config["processor"].removeMember("dispatching_time");
             agent();
         }},
        {"server.url fault unencrypted", 1, [&] { set("server_url", "http://127.0.0.1"); }},
        {"server.url fault port", 1, [&] { set("server_url", "https://127.0.0.1:8443"); }},
        {"server.url fault slash", 1, [&] { set("server_url", "https://127.0.0.1/"); }},
        {"server.url fault capitals", 1, [&] { set("server_url", "HTTPS://127.0.0.1"); }},
    });
}

TEST_F(doctor, looks_at_files_script_and_store) {
    const auto sql = [](const char* statement) { return [statement] { query(statement); }; };
    const auto store = data_dir() / "db_reports";
    expect_each(
        {
            {"files.store_lock fault missing", 1,
             [] { fs::remove(lock_dir() / "tev_reporter_db_file_lock"); }},
            {"files.stats_lock fault missing", 1,
             [] { fs::remove(lock_dir() / "tev_reporter_stats_file_lock"); }},
            {"files.store_lock fault held | /run/user/5001/tev_reporter_db_file_lock is held by "
             "process " +
                 std::to_string(getpid()) + " (",
             1, [&] { hold("tev_reporter_db_file_lock"); }},
            {"files.stats warning damaged", 0, [&] { write_text(data_dir() / "stats", "{"); }},
            {"script.file fault missing", 1, [] { fs::remove(script()); }},
            {"script.file warning several", 0,
             [] { fs::copy(script(), data_dir() / "lua" / "processor_extension_V2.lua"); }},
            {"script.file warning left-over", 0,
             [] {
                 fs::rename(script(), data_dir() / "lua" / "processor_extension_V1.lua.rpmsave");
             }},
            {"script.syntax fault syntax | " + script().string() + ":1: ", 1,
             [] { write_text(script(), "function (" + read_text(script())); }},
            {"script.loads fault failing | " + script().string() + ":1: attempt to", 1,
             [] { write_text(script(), "nothing.at_all()"); }},
            {"script.loads fault failing | " + script().string() + ":1: xx", 1,
             [] { write_text(script(), "error(string.rep('x', 1000000))"); }},
            {"script.functions fault missing | remove_report_by_id", 1,
             [] { in_script("function remove_report_by_id", "function remove"); }},
            {"script.modules fault missing | module json", 1,
             [] { fs::remove(data_dir() / "lib" / "lua" / "json.lua"); }},
            {"store.file skipped  | the storage script has no function inspect", 0,
             [] { in_script("function inspect", "function look"); }},
            {"store.file fault foreign", 1, sql("PRAGMA application_id = 1")},
            {"store.file fault newer", 1, sql("PRAGMA user_version = 99")},
            {"store.file fault damaged", 1, [&] { write_text(store, std::string(8192, '#')); }},
            {"store.check fault damaged", 1,
             [&] {
                 std::string text = read_text(store);
                 text.replace(4096 * 6, 2048, std::string(2048, '\xff'));
                 write_text(store, text);
             }},
            {"store.file fault locked | the database is locked by process ", 1,
             [&] { hold_store(""); }},
            {"store.file warning unfinished", 0,
             [&] {
                 hold_store("INSERT INTO contents VALUES(2, 0, '', hex(randomblob(90000)))");
                 _shell.reset();
             }},
            {"store.accounts warning differ", 0, sql("UPDATE accounts SET saved = saved + 1")},
            {"store.set_aside warning set-aside", 0, sql("UPDATE accounts SET set_aside = 1")},
            {"store.refused warning too-large", 0,
             [&] {
                 config["db_max_size"] = 262144;
                 std::string noise;
                 for (unsigned int value = 1; noise.size() < 400000; value = value * 1664525 + 1) {
                     noise.push_back(static_cast<char>(value >> 24));
                 }
                 const auto id =
                     reporter::reports_storage::make({{config, {}}, read_text(script())}, true)
                         ->save_report({7, 1, {noise.begin(), noise.end()}, 0});
                 EXPECT_EQ(id, 0);
                 agent();
             }},
        },
        {"--offline", "--deep"});
}

TEST_F(doctor, looks_at_credentials_and_clock) {
    const auto package = [](const std::string& content) {
        write_text(PACKAGE, content);
        fs::remove(item("reporter-key"));
    };
    expect_each({
        {"credentials.key ok", 0, [] {}},
        {"credentials.key fault passphrase", 1,
         [] { write_text(item("reporter-key"), pki("client-other-ca.key")); }},
        {"credentials.key fault broken", 1,
         [] { write_text(item("reporter-key"), pki("client.key").substr(0, 200)); }},
        {"credentials.key fault other", 1,
         [] { write_text(item("reporter-key"), pki("server.key")); }},
        {"credentials.key fault missing", 1, [] { fs::remove(item("reporter-key")); }},
        {"credentials.key warning not-installed", 0, [&] { package(pki("00000051.bin")); }},
        {"credentials.certificate warning expires-soon", 0,
         [&] {
             package(pki("00000051.bin"));
             fs::remove(item("reporter-crt"));
         }},
        {"credentials.key fault broken-package", 1,
         [&] { package(pki("00000051.bin").substr(0, 1500)); }},
        {"credentials.certificate fault missing", 1, [] { fs::remove(item("reporter-crt")); }},
        {"credentials.certificate fault broken", 1,
         [] { write_text(item("reporter-crt"), std::string(2000, '#')); }},
        {"credentials.certificate fault expired", 1,
         [] {
             write_text(item("reporter-crt"), pki("client-expired.pem"));
             write_text(item("reporter-key"), pki("client-expired.key"));
         }},
        {"credentials.bundle fault missing", 1, [] { fs::remove(CA); }},
        {"credentials.bundle fault empty", 1, [] { write_text(CA, ""); }},
        {"credentials.bundle fault broken", 1, [] { write_text(CA, std::string(2000, '#')); }},
        {"credentials.bundle fault no-certificate", 1, [] { write_text(CA, pki("crl.pem")); }},
        {"credentials.authority warning expired", 0,
         [] { write_text(CA, pki("ca.pem") + pki("expired-ca.pem")); }},
        {"time.clock fault never-set", 1, [] {}, {"TEV_CLOCK=86400"}},
        {"time.clock warning behind-reports", 1, [] {}, {"TEV_CLOCK=1791000000"}},
        {"time.clock fault ahead",
         1,
         [] {},
         {sizeof(std::time_t) > 4 ? "TEV_CLOCK=3786912000" : "TEV_CLOCK=2114380800"}},
    });
}

TEST_F(doctor, sees_a_full_or_read_only_disk) {
    NEEDS_MOUNTS()
    const strings full = {"bwrap",
                          "--dev-bind",
                          "/",
                          "/",
                          "--size",
                          "4194304",
                          "--tmpfs",
                          "/opt/data",
                          "sh",
                          "-c",
                          "cp -r \"$0\"/. /opt/data; cat /dev/zero 2>&- >/opt/data/filler; \"$@\"",
                          scratch_root() / "opt" / "data"};
    const strings read_only = {"bwrap",     "--dev-bind", "/",       "/",
                               "--ro-bind", data_dir(),   data_dir()};
    expect_each({{"files.disk fault full", 1, [] {}, full},
                 {"files.db_reports fault read-only", 1, [] {}, read_only},
                 {"store.times ok", 1, [] {}, read_only}});
}

// What root could read and write, and the agent's user cannot.
TEST_F(doctor, works_as_the_owner_of_the_data_directory) {
    if (child_process({"setpriv", "--reuid=5001", "--clear-groups", "true"}).wait() != 0) {
        GTEST_SKIP() << "needs to be root, and to be able to become another user";
    }
    const auto spoiled = [](const fs::path& path, fs::perms mode, const char* text = nullptr) {
        return [=] {
            if (text != nullptr) {
                write_text(path, text);
            }
            fs::permissions(path, mode);
            // Where nothing is mounted, the way to the device leads through it.
            fs::permissions(scratch_root(), fs::perms(0711));
            fs::copy(platform_dir(), "/opt/data/platform", fs::copy_options::recursive);
            for (const fs::path& own :
                 {data_dir(), data_dir() / "db_reports", data_dir() / "db_reports-journal",
                  lock_dir() / "tev_reporter_stats_file_lock"}) {
                EXPECT_EQ(chown(own.c_str(), 5001, 100), 0);
            }
        };
    };
    const fs::perms owners = fs::perms::owner_read | fs::perms::owner_write;
    const auto db_lock = lock_dir() / "tev_reporter_db_file_lock", stats = data_dir() / "stats";
    const auto config_file = data_dir() / "config" / "config.def";
    // A build that counts lines cannot note them in its own place as another user, and would say
    // so.
    const auto lines_of_user = [](const char* user) {
        const fs::path counts = scratch_root() / user;
        fs::create_directory(counts);
        fs::permissions(counts, fs::perms::all);
        return "GCOV_PREFIX=" + counts.string();
    };
    const strings platform = {"TEV_PLATFORM_DIR=/opt/data/platform", lines_of_user("5001")};
    expect_each({
        {"files.store_lock ok", 0, spoiled(db_lock, fs::perms(0666)), platform},
        {"files.store_lock fault access", 1, spoiled(db_lock, owners), platform},
        {"files.data_dir fault access", 1, spoiled(data_dir(), fs::perms(0555)), platform},
        {"files.data_dir fault owner", 1, [&] { EXPECT_EQ(chown(db_lock.c_str(), 5001, 100), 0); }},
        {"files.stats fault access", 1, spoiled(stats, owners, "{}"), platform},
        {"configuration.config.def fault access", 1, spoiled(config_file, owners), platform},
        {"script.file fault access", 1, spoiled(script().string() + ".bak", owners, ""), platform},
    });
    EXPECT_EQ(
        run({lines_of_user("5002"), "setpriv", "--reuid=5002", "--clear-groups"}, OFFLINE),
        std::pair(std::string("tev-report: /opt/data/dpm/dplugins/tev-reporter-plugin/ belongs "
                              "to 5001: run this as that user or as root\n"),
                  2));
}

TEST_F(doctor, speaks_to_a_person) {
    fs::remove_all("/opt/data/dpm");
    fs::remove_all("/opt/data/cert");
    fs::remove_all(platform_dir() / "secure_storage");
    fs::remove(lock_dir() / "tev_reporter_db_file_lock");
    fs::remove(lock_dir() / "tev_reporter_stats_file_lock");
    EXPECT_EQ(run({"TEV_CLOCK=1795600000"}, OFFLINE), std::pair(std::string(R"(configuration
  fault    file: none of config.def, config.rel and config.stg in /opt/data/dpm/dplugins/tev-reporter-plugin/config can be used
           -> install the configuration
gates
  skipped  sending: no configuration
  ok       consent: db/menu/homedeck/homedatacontrol/defaultdisclaimeragree is 1
files
  fault    data_dir: /opt/data/dpm/dplugins/tev-reporter-plugin/ is not there
           -> install the agent
  fault    store_lock: /run/user/5001/tev_reporter_db_file_lock: No such file or directory
           -> the platform makes it at boot: see why it did not
  fault    stats_lock: /run/user/5001/tev_reporter_stats_file_lock: No such file or directory
           -> the platform makes it at boot: see why it did not
script
  fault    file: /opt/data/dpm/dplugins/tev-reporter-plugin/lua: No such file or directory
           -> install the agent, readable for its user
store
  skipped  file: the store's lock could not be had
credentials
  fault    bundle: /opt/data/cert/vdca.pem: No such file or directory
           -> install the platform's bundle of authorities
  fault    certificate: reporter-crt is not in secure storage, and /usr/share/sdp/tev-reporter-plugin-key/00000051.bin, from which it is installed: No such file or directory
           -> bring the device's key package
  fault    key: reporter-key is not in secure storage, and /usr/share/sdp/tev-reporter-plugin-key/00000051.bin, from which it is installed: No such file or directory
           -> bring the device's key package
time
  ok       clock: the clock shows 2026-11-25 09:46:40
server
  skipped  url: no configuration

A fault stops a pass that is started now, or harms it. Faults: 8, closed: 0, warnings: 0, skipped: 3.
)"),
                                                                1));
}

}  // namespace
