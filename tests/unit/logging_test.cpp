#include "logging.h"

#include <regex>

#include "support/device_root.h"

using log_record = test_support::device_test;

TEST_F(log_record, hands_the_platform_its_exact_arguments) {
    REPORTER_WARN("100 % of %s");
    REPORTER_WARN("100 % of "
                  << "%s" << '\n');
    const std::regex expected(
        R"(W/TEV_REPORTER\(2\): logging_test\.cpp: TestBody\(\d+\) > PROCESSOR :rss \S+ 100 % of %s\n)");
    for (const std::string& record : recorder.records()) {
        EXPECT_TRUE(std::regex_match(record, expected)) << record;
    }
    EXPECT_EQ(recorder.records().size(), 2U);
}
