#include "module_host.h"

#include <functional>
#include <future>
#include <stdexcept>

#include "support/device_root.h"

using module_host = test_support::device_test;

struct scripted_policy {
    std::function<void()> run_impl, stop;
};

TEST_F(module_host, runs_once_stops_once_and_waits_whatever_is_thrown) {
    int runs = 0;
    {
        std::promise<void> may_end;
        const auto work = [&] {
            may_end.get_future().wait();
            throw std::runtime_error("run " + std::to_string(++runs));
        };
        const auto stop = [] { throw std::runtime_error("stop"); };
        reporter::modules::module_host<scripted_policy> module({work, stop}, "m");
        module.stop();
        module.run();
        module.run();
        module.stop();
        may_end.set_value();
    }
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(recorder.count("E fatal error in module[m]: run 1"), 1U);
    EXPECT_EQ(recorder.count("E stop"), 1U);
}
