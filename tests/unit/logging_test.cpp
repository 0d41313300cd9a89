#include "logging.h"

#include "support/device_root.h"

using log_record = test_support::device_test;

TEST_F(log_record, hands_the_platform_its_exact_arguments) {
    REPORTER_WARN("100 % of %s");
    REPORTER_WARN("100 % of "
                  << "%s" << '\n');
    for (const auto& entry : recorder.log()) {
        EXPECT_EQ(entry.log_id, 2);
        EXPECT_EQ(entry.priority, 5);
        EXPECT_EQ(entry.tag + ' ' + entry.file + ' ' + entry.function,
                  "TEV_REPORTER logging_test.cpp TestBody");
        EXPECT_EQ(entry.text.find("PROCESSOR :rss "), 0U);
        EXPECT_EQ(entry.text.substr(entry.text.size() - 13), " 100 % of %s\n");
    }
    EXPECT_EQ(recorder.log().size(), 2U);
}
