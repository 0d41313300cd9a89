#include <sys/fsuid.h>
#include <unistd.h>

#include <ctime>

#include "common.h"
#include "support/device_root.h"
#include "support/error_of.h"
#include "support/full_disk.h"

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

TEST_F(files, keep_their_content_on_a_full_disk) {
    reporter::write_file(file, bytes);
    const std::string large(100000, 'x'), error = file + " :can't be written";
    {
        const full_disk disk(50000);
        EXPECT_EQ(error_of([&] { reporter::write_file(file, large); }), error);
        EXPECT_EQ(error_of([&] { reporter::append_to_file(file, large); }), error);
    }
    EXPECT_TRUE(reporter::file_is_equal(file, bytes));
    EXPECT_FALSE(fs::exists(file + ".tmp"));
}

TEST_F(files, keep_their_links_and_their_mode_also_where_no_new_one_can_be_made) {
    reporter::write_file(file, "earlier");
    fs::permissions(file, fs::perms(0666));
    fs::create_symlink(file, file + ".link");
    reporter::write_file(file + ".link", bytes);
    EXPECT_EQ(reporter::read_file(file), bytes);
    fs::permissions(directory, fs::perms(0555));
    setfsuid(1);  // root makes files anywhere
    if (setfsuid(1) == 0) {
        GTEST_SKIP() << "root cannot be another user here";
    }
    reporter::write_file(file + ".link", bytes + bytes);
    reporter::write_file(directory + "/new", bytes);
    setfsuid(geteuid());
    fs::permissions(directory, fs::perms(0755));
    EXPECT_EQ(reporter::read_file(file), bytes + bytes);
    EXPECT_TRUE(fs::is_symlink(file + ".link"));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0666));
    EXPECT_EQ(reporter::size_file(directory + "/new"), -1);
}

TEST_F(files, are_stamped_with_the_local_time) {
    setenv("TZ", "TST-5:30", 1);
    tzset();
    std::tm stamp{};
    EXPECT_NE(strptime(reporter::get_current_time().c_str(), "%Y-%b-%d %T", &stamp), nullptr);
    EXPECT_LE(std::time(nullptr) - std::mktime(&stamp), 1);
}
