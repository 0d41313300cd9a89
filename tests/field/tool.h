#pragma once

#include "support/agent_run.h"

/// tev-report as a process whose pauses take no time, on a device where all is well.
class tool_test : public test_support::pass_test {
protected:
    using strings = test_support::strings;

    /// What it writes, which has to end so.
    static std::string output(const strings& arguments, int status = 0,
                              const strings& environment = {}) {
        const strings command = test_support::built_program(TEV_REPORT, arguments);
        test_support::child_process tool(test_support::joined(
            test_support::joined({"env", "LD_PRELOAD=" TEV_PRELOAD, "TZ=UTC"}, environment),
            command));
        EXPECT_EQ(tool.wait(), status) << tool.output();
        return tool.output();
    }
    static Json::Value json(strings arguments, int status = 0) {
        arguments.push_back("--json");
        Json::Value document;
        std::istringstream(output(arguments, status)) >> document;
        return document;
    }
};
