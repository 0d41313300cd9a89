#include "module_host.h"

#include <functional>
#include <future>
#include <stdexcept>

#include "support/device_root.h"

using namespace test_support;

namespace {

struct scripted_policy {
    std::function<void()> run_impl;
    std::function<void()> stop;
};

using host = reporter::modules::module_host<scripted_policy>;

class module_host : public device_test {
protected:
    // The two threads' lines interleave as they like; each thread's own are in order.
    messages lines(bool of_the_run_thread) const {
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

    const std::function<void()> count_run = [this] { ++runs; };
    const std::function<void()> count_stop = [this] { ++stops; };
    const std::function<void()> fail = [] { throw std::runtime_error("boom"); };
    int runs = 0;
    int stops = 0;
};

}  // namespace

TEST_F(module_host, runs_once_stops_once_and_waits) {
    {
        std::promise<void> may_end;
        host module({[&] { ++runs, may_end.get_future().wait(); }, count_stop}, "m");
        module.run();
        module.run();
        module.stop();
        module.stop();
        may_end.set_value();
        module.wait();
    }
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(lines(false),
              (messages{"I module[m] are constructed", "I module_host::run module[m]",
                        "I module_host::run module[m]", "I module already started",
                        "I stopping module: m", "I joinable?= 1 m", "I module [m] already stopped",
                        "I module_host::wait module: m", "I joinable?= 1 m", "I waited  m",
                        "I module [m] already stopped", "I module_host::wait module: m",
                        "I joinable?= 0 m", "I waited  m", "I ~modules_host: m"}));
    EXPECT_EQ(recorder.log().back().function, "~module_host");
    EXPECT_EQ(lines(true),
              (messages{"I before 'run_impl' module[m]", "I after 'run_impl' module[m]"}));
}

TEST_F(module_host, ends_work_that_throws_and_stops_it_at_destruction) {
    {
        host module({fail, count_stop}, "m");
        module.run();
        module.wait();
        EXPECT_EQ(stops, 0);
    }
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(lines(true),
              (messages{"I before 'run_impl' module[m]", "E fatal error in module[m]: boom"}));
}

TEST_F(module_host, starts_after_a_stop_and_keeps_its_failure_to_itself) {
    host module({count_run, fail}, "m");
    module.stop();
    module.stop();
    EXPECT_EQ(recorder.messages(), (messages{"I module[m] are constructed", "I stopping module: m",
                                             "E boom", "I module [m] already stopped"}));
    module.run();
    module.wait();
    EXPECT_EQ(runs, 1);
}
