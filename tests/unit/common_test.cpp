#include <ctime>

#include "common.h"
#include "support/device_root.h"
#include "support/error_of.h"

using namespace test_support;
namespace fs = std::filesystem;

const std::string bytes("a\0b\n", 4);

class files : public device_test {
protected:
    const std::string directory = data_dir();
    const std::string file = directory + "/file";
};

TEST_F(files, that_are_missing_or_directories_are_told_apart_from_empty_ones) {
    for (const std::string& path : {directory + "/missing/file", directory}) {
        EXPECT_EQ(error_of([&] { reporter::read_file(path); }), path + " :file doesn't exist");
        EXPECT_EQ(reporter::read_file_default(path, "fallback"), "fallback");
        EXPECT_FALSE(reporter::file_is_equal(path, ""));
        EXPECT_NO_THROW(reporter::write_file(path, bytes));
        EXPECT_NO_THROW(reporter::append_to_file(path, bytes));
    }
    EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(files, are_written_in_place) {
    reporter::write_file(file, "of earlier times");
    fs::create_hard_link(file, file + ".other");
    fs::create_symlink(file, file + ".link");
    reporter::write_file(file + ".link", bytes);
    reporter::append_to_file(file + ".link", bytes);
    EXPECT_TRUE(reporter::file_is_equal(file + ".other", bytes + bytes));
    EXPECT_EQ(reporter::size_file(file), 8);
    EXPECT_EQ(reporter::size_file(directory + "/missing"), -1);
    EXPECT_NO_THROW(reporter::write_file("/dev/full", std::string(100000, 'x')));
    EXPECT_NO_THROW(reporter::append_to_file("/dev/full", bytes));
}

TEST_F(files, are_stamped_with_the_local_time) {
    setenv("TZ", "TST-5:30", 1);
    tzset();
    std::tm stamp{};
    EXPECT_NE(strptime(reporter::get_current_time().c_str(), "%Y-%b-%d %T", &stamp), nullptr);
    EXPECT_LE(std::time(nullptr) - std::mktime(&stamp), 1);
}
