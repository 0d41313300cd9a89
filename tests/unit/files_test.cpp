#include <sys/fsuid.h>
#include <unistd.h>

#include <ctime>
#include <thread>

#include "common.h"
#include "support/device_root.h"
#include "support/error_of.h"
#include "support/full_disk.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

const std::string bytes("a\0b\n", 4);

class files : public device_test {
protected:
    const std::string file = data_dir() / "file";
    const std::string missing = data_dir() / "missing" / "file";
    const std::string directory = data_dir();
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
    {
        const full_disk disk(50000);
        const std::string large(100000, 'x');
        const std::string error = file + " :can't be written";
        EXPECT_EQ(error_of([&] { reporter::write_file(file, large); }), error);
        EXPECT_EQ(error_of([&] { reporter::append_to_file(file, large); }), error);
    }
    EXPECT_EQ(reporter::read_file(file), bytes);
    EXPECT_FALSE(fs::exists(file + ".tmp"));
}

TEST_F(files, keep_their_links_and_their_mode) {
    reporter::write_file(file, "earlier");
    fs::permissions(file, fs::perms(0642));
    fs::create_symlink(file, file + ".link");
    reporter::write_file(file + ".link", bytes);
    EXPECT_TRUE(fs::is_symlink(file + ".link"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0642));
    EXPECT_EQ(reporter::read_file(file), bytes);
}

TEST_F(files, are_rewritten_in_place_where_no_new_one_can_be_made) {
    reporter::write_file(file, "earlier");
    fs::permissions(file, fs::perms(0666));
    fs::permissions(directory, fs::perms(0555));
    setfsuid(1);  // root makes files anywhere
    reporter::write_file(file, bytes);
    reporter::write_file(directory + "/new", bytes);
    setfsuid(geteuid());
    fs::permissions(directory, fs::perms(0755));
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
