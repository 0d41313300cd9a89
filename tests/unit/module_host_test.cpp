#include "module_host.h"

#include <functional>
#include <future>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/platform_recorder.h"

using test_support::platform_recorder;

namespace {

struct scripted_policy {
    std::function<void()> run_impl;
    std::function<void()> stop;
};

using host = reporter::modules::module_host<scripted_policy>;
using messages = std::vector<std::string>;

// The two threads' lines interleave as they like; each thread's own are in order.
messages lines_of(const platform_recorder& recorder, bool of_the_run_thread) {
    messages result;
    const auto log = recorder.log();
    for (std::size_t i = 0; i < log.size(); ++i) {
        EXPECT_EQ(log[i].file, "module_host.h");
        if ((log[i].function == "operator()") == of_the_run_thread) {
            result.push_back(recorder.messages()[i]);
        }
    }
    return result;
}

[[noreturn]] void fail() {
    throw std::runtime_error("boom");
}

}  // namespace

TEST(module_host, runs_once_stops_once_and_waits) {
    platform_recorder recorder;
    int runs = 0;
    int stops = 0;
    {
        std::promise<void> may_end;
        host module({[&] { ++runs, may_end.get_future().wait(); }, [&] { ++stops; }}, "m");
        module.run();
        module.run();
        module.stop();
        module.stop();
        may_end.set_value();
        module.wait();
    }
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(lines_of(recorder, false),
              (messages{"I module[m] are constructed", "I module_host::run module[m]",
                        "I module_host::run module[m]", "I module already started",
                        "I stopping module: m", "I joinable?= 1 m", "I module [m] already stopped",
                        "I module_host::wait module: m", "I joinable?= 1 m", "I waited  m",
                        "I module [m] already stopped", "I module_host::wait module: m",
                        "I joinable?= 0 m", "I waited  m", "I ~modules_host: m"}));
    EXPECT_EQ(recorder.log().back().function, "~module_host");
    EXPECT_EQ(lines_of(recorder, true),
              (messages{"I before 'run_impl' module[m]", "I after 'run_impl' module[m]"}));
}

TEST(module_host, ends_work_that_throws_and_stops_it_at_destruction) {
    platform_recorder recorder;
    int stops = 0;
    {
        host module({fail, [&] { ++stops; }}, "m");
        module.run();
        module.wait();
        EXPECT_EQ(stops, 0);
    }
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(lines_of(recorder, true),
              (messages{"I before 'run_impl' module[m]", "E fatal error in module[m]: boom"}));
}

TEST(module_host, starts_after_a_stop_and_keeps_its_failure_to_itself) {
    platform_recorder recorder;
    int runs = 0;
    host module({[&] { ++runs; }, fail}, "m");
    module.stop();
    module.stop();
    EXPECT_EQ(recorder.messages(), (messages{"I module[m] are constructed", "I stopping module: m",
                                             "E boom", "I module [m] already stopped"}));
    module.run();
    module.wait();
    EXPECT_EQ(runs, 1);
}
