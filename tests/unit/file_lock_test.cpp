#include "file_lock.h"

#include <mutex>
#include <thread>

#include "build_shared_mutex.h"
#include "support/children.h"
#include "support/error_of.h"

using namespace test_support;

class file_locks : public device_test {};

TEST_F(file_locks, are_made_or_opened_as_wanted) {
    const std::string error = "Failed to create or open: /run/user/5001/a";
    EXPECT_EQ(error_of([] { reporter::build_shared_mutex("a", false); }), error);
    write_text(lock_dir() / "a", "left over");
    std::filesystem::create_hard_link(lock_dir() / "a", lock_dir() / "still held by somebody");
    reporter::build_shared_mutex("a", true);
    EXPECT_EQ(read_text(lock_dir() / "a"), "");
    EXPECT_EQ(read_text(lock_dir() / "still held by somebody"), "left over");
    write_text(lock_dir() / "a", "kept");
    reporter::build_shared_mutex("a", false)->lock();
    EXPECT_EQ(read_text(lock_dir() / "a"), "kept");
    EXPECT_EQ(recorder.messages(),
              (messages{"I open shared mutex: a", "E can't build mutex: a error: " + error,
                        "I create shared mutex: a", "I Already unlocked: a",
                        "I open shared mutex: a", "I Locked: a", "I Already unlocked: a"}));
    EXPECT_TRUE(lock_is_free("a"));
}

TEST_F(file_locks, let_one_thread_in_whatever_their_names) {
    file_lock a("create_only", "a");
    file_lock b("create_only", "b");
    int inside = 0;
    const auto enter = [&](file_lock& lock) {
        for (int i = 0; i < 200; ++i) {
            const std::lock_guard<file_lock> guard(lock);
            ++inside;
            EXPECT_EQ(inside, 1);
            --inside;
        }
    };
    std::thread other([&] { enter(b); });
    enter(a);
    other.join();
}

TEST_F(file_locks, let_one_process_in_and_one_lock_per_thread) {
    file_lock lock("create_only", "a");
    const auto add = [&] {
        for (int i = 0; i < 100; ++i) {
            const std::lock_guard<file_lock> guard(lock);
            const std::string sum = read_text(lock_dir() / "sum");
            write_text(lock_dir() / "sum", std::to_string(std::stoi(sum) + 1));
        }
        return true;
    };
    write_text(lock_dir() / "sum", "0");
    EXPECT_TRUE(in_children(3, add));
    EXPECT_EQ(read_text(lock_dir() / "sum"), "300");
    lock.lock();
    EXPECT_FALSE(lock_is_free("a"));
    file_lock other("create_only", "b");
    for (file_lock* second : {&lock, &other}) {
        EXPECT_NE(error_of([&] { second->lock(); }), "nothing thrown");
    }
    lock.unlock();
    EXPECT_TRUE(lock_is_free("a"));
}

TEST_F(file_locks, that_failed_stay_out_of_use_and_out_of_the_way) {
    const int next_descriptor = dup(0);
    close(next_descriptor);
    file_lock lock("create_only", "a");
    close(next_descriptor);
    EXPECT_EQ(error_of([&] { lock.lock(); }), "Failed to lock: a");
    EXPECT_EQ(error_of([&] { lock.lock(); }), "Failed to lock: a");
    file_lock other("create_only", "b");
    other.lock();
    other.unlock();
}
