#include <sys/fsuid.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <thread>

#include <json/value.h>

#include "common.h"
#include "support/device_root.h"
#include "support/error_of.h"

namespace fs = std::filesystem;
using test_support::data_dir;
using test_support::error_of;

namespace {

const std::string bytes("a\0b\n", 4);

class files : public test_support::device_test {
protected:
    const std::string file = data_dir() / "file";
    const std::string missing = data_dir() / "missing" / "file";
    const std::string directory = data_dir();
};

// Nobody, not even root, makes a file in the directory while this lives.
class read_only {
public:
    explicit read_only(fs::path directory) : _directory(std::move(directory)) {
        fs::permissions(_directory, fs::perms(0555));
        setfsuid(1);
    }
    ~read_only() {
        setfsuid(geteuid());
        fs::permissions(_directory, fs::perms(0755));
    }

private:
    fs::path _directory;
};

}  // namespace

TEST_F(files, keep_every_byte) {
    reporter::write_file(file, "longer than what follows");
    reporter::write_file(file, bytes);
    reporter::append_to_file(file, bytes);
    EXPECT_EQ(reporter::read_file(file), bytes + bytes);
    EXPECT_EQ(reporter::size_file(file), 8);
    EXPECT_TRUE(reporter::file_is_equal(file, bytes + bytes));
    EXPECT_FALSE(reporter::file_is_equal(file, bytes));
    reporter::write_file(file, "");
    EXPECT_EQ(reporter::read_file_default(file, "fallback"), "");
}

TEST_F(files, that_are_missing_or_directories_are_told_apart_from_empty_ones) {
    for (const std::string& path : {missing, directory}) {
        EXPECT_EQ(error_of([&] { reporter::read_file(path); }), path + " :file doesn't exist");
        EXPECT_EQ(reporter::read_file_default(path, "fallback"), "fallback");
        EXPECT_FALSE(reporter::file_is_equal(path, ""));
        EXPECT_EQ(error_of([&] { reporter::write_file(path, bytes); }), "nothing thrown");
        EXPECT_EQ(error_of([&] { reporter::append_to_file(path, bytes); }), "nothing thrown");
    }
    EXPECT_EQ(reporter::size_file(missing), -1);
    EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(files, keep_their_content_on_a_full_disk) {
    reporter::write_file(file, bytes);
    const std::string large(100000, 'x');
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit size{};
    getrlimit(RLIMIT_FSIZE, &size);
    const rlimit small{50000, size.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(error_of([&] { reporter::write_file(file, large); }), file + " :can't be written");
    EXPECT_EQ(error_of([&] { reporter::append_to_file(file, large); }),
              file + " :can't be written");
    setrlimit(RLIMIT_FSIZE, &size);
    EXPECT_EQ(reporter::read_file(file), bytes);
    EXPECT_FALSE(fs::exists(file + ".tmp"));
}

TEST_F(files, are_rewritten_in_place_where_no_new_one_can_be_made) {
    reporter::write_file(file, "earlier");
    fs::permissions(file, fs::perms(0666));
    const read_only guard(directory);
    reporter::write_file(file, bytes);
    reporter::write_file(directory + "/new", bytes);
    EXPECT_EQ(reporter::read_file(file), bytes);
    EXPECT_EQ(reporter::size_file(directory + "/new"), -1);
}

TEST_F(files, of_json_are_read_by_several_threads) {
    Json::Value document;
    document["a"] = 1;
    reporter::write_json(file, document);
    EXPECT_EQ(reporter::read_file(file), "{\n   \"a\" : 1\n}\n");
    const auto parse = [&] {
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(reporter::json_parse(reporter::read_file(file)), document);
        }
    };
    std::thread other(parse);
    parse();
    other.join();
    for (const std::string& text :
         {std::string(), std::string("{\"a\":"), std::string(5000, '[')}) {
        EXPECT_EQ(error_of([&] { reporter::json_parse(text); }), "can't parse json");
    }
}

TEST_F(files, are_stamped_with_the_local_time) {
    setenv("TZ", "TST-5:30", 1);
    tzset();
    char expected[40] = "";
    std::string stamp;
    std::time_t second = 0;
    do {
        second = std::time(nullptr);
        std::strftime(expected, sizeof expected, "%Y-%b-%d %H:%M:%S", std::localtime(&second));
        stamp = reporter::get_current_time();
    } while (second != std::time(nullptr));
    EXPECT_EQ(stamp, expected);
}
