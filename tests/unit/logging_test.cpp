#include "logging.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <sstream>

#include <gtest/gtest.h>

#include "support/platform_recorder.h"

using test_support::platform_recorder;

TEST(log_record, hands_the_platform_its_exact_arguments) {
    platform_recorder recorder;
    REPORTER_INFO("one " << 2 << ' ' << true);
    REPORTER_WARN("100 % of %s");
    REPORTER_ERROR("ends itself\n");
    const char* messages[] = {"I one 2 1", "W 100 % of %s", "E ends itself"};
    const auto log = recorder.log();
    ASSERT_EQ(log.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(log[i].log_id, 2);
        EXPECT_EQ(log[i].priority, 4 + static_cast<int>(i));
        EXPECT_EQ(log[i].tag, "TEV_REPORTER");
        EXPECT_EQ(log[i].format, "%s: %s(%d) > %s");
        EXPECT_EQ(log[i].file, "logging_test.cpp");
        EXPECT_EQ(log[i].function, "TestBody");
        EXPECT_EQ(log[i].line, log[0].line + static_cast<int>(i));
        EXPECT_EQ(recorder.messages()[i], messages[i]);
        EXPECT_EQ(log[i].text.find('\n'), log[i].text.size() - 1);
    }
}

TEST(log_record, writes_the_memory_figure_with_six_digits) {
    platform_recorder recorder;
    // One mebibyte, a thousand times: large in the figure, not in the machine.
    const int file = memfd_create("pages", MFD_CLOEXEC);
    constexpr std::size_t piece = 1 << 20;
    ASSERT_EQ(ftruncate(file, piece), 0);
    for (int i = 0; i < 1000; ++i) {
        mmap(nullptr, piece, PROT_READ, MAP_SHARED | MAP_POPULATE, file, 0);
    }
    double figure = 0;
    do {
        figure = reporter::process_mem_usage();
        REPORTER_INFO("large");
    } while (figure != reporter::process_mem_usage());
    std::ostringstream expected;
    expected << "PROCESSOR :rss " << figure << " large\n";
    EXPECT_EQ(recorder.log().back().text, expected.str());
    // An emulator may show no figure of the emulated process.
    EXPECT_TRUE(figure == 0 || expected.str().find("e+06 large") != std::string::npos);
}

TEST(log_record, shows_minus_one_where_the_figure_cannot_be_read) {
    platform_recorder recorder;
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlimit none{0, descriptors.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    REPORTER_INFO("blind");
    setrlimit(RLIMIT_NOFILE, &descriptors);
    EXPECT_EQ(recorder.log().at(0).text, "PROCESSOR :rss -1 blind\n");
}
