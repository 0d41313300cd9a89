#include "logging.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <regex>

#include "support/device_root.h"

using namespace test_support;

class log_record : public device_test {};

TEST_F(log_record, hands_the_platform_its_exact_arguments) {
    REPORTER_INFO("one " << 2 << ' ' << true);
    REPORTER_WARN("100 % of %s");
    REPORTER_ERROR("ends itself\n");
    EXPECT_EQ(recorder.messages(), (messages{"I one 2 1", "W 100 % of %s", "E ends itself"}));
    for (int i = 0; i < 3; ++i) {
        const log_entry entry = recorder.log()[static_cast<std::size_t>(i)];
        EXPECT_EQ(entry.log_id, 2);
        EXPECT_EQ(entry.priority, 4 + i);
        EXPECT_EQ(entry.tag, "TEV_REPORTER");
        EXPECT_EQ(entry.format, "%s: %s(%d) > %s");
        EXPECT_EQ(entry.file + ' ' + entry.function, "logging_test.cpp TestBody");
        EXPECT_EQ(entry.line, recorder.log()[0].line + i);
        EXPECT_EQ(entry.text.find('\n'), entry.text.size() - 1);
    }
}

TEST_F(log_record, writes_the_memory_figure_with_six_digits) {
    // One mebibyte, a thousand times: large in the figure, not in the machine.
    const int file = memfd_create("pages", MFD_CLOEXEC);
    constexpr std::size_t piece = 1 << 20;
    ASSERT_EQ(ftruncate(file, piece), 0);
    for (int i = 0; i < 1000; ++i) {
        mmap(nullptr, piece, PROT_READ, MAP_SHARED | MAP_POPULATE, file, 0);
    }
    REPORTER_INFO("large");
    // An emulator shows no figure of the emulated process.
    const std::regex expected("PROCESSOR :rss (0|[1-9](\\.\\d{1,5})?e\\+06) large\n");
    EXPECT_TRUE(std::regex_match(recorder.log().at(0).text, expected));
}

TEST_F(log_record, has_minus_one_for_a_figure_that_cannot_be_read) {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlimit none{0, descriptors.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const double figure = reporter::process_mem_usage();
    setrlimit(RLIMIT_NOFILE, &descriptors);
    EXPECT_EQ(figure, -1);
}
