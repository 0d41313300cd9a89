#include "logging.h"

#include <gtest/gtest.h>

#include "support/platform_recorder.h"

TEST(log_record, hands_the_platform_its_exact_arguments) {
    test_support::platform_recorder recorder;
    REPORTER_WARN("100 % of %s");
    ASSERT_EQ(recorder.log().size(), 1U);
    const test_support::log_entry entry = recorder.log().front();
    EXPECT_EQ(entry.log_id, 2);
    EXPECT_EQ(entry.priority, 5);
    EXPECT_EQ(entry.tag, "TEV_REPORTER");
    EXPECT_EQ(entry.format, "%s: %s(%d) > %s");
    EXPECT_EQ(entry.file, "logging_test.cpp");
    EXPECT_EQ(entry.function, "TestBody");
    EXPECT_EQ(entry.message(), "100 % of %s");
    EXPECT_EQ(entry.text.back(), '\n');
}
