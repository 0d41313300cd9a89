#include "file_lock.h"

#include <functional>
#include <mutex>
#include <thread>

#include "build_shared_mutex.h"
#include "support/children.h"
#include "support/error_of.h"

using namespace test_support;

class file_locks : public device_test {};

TEST_F(file_locks, are_made_or_opened_as_wanted) {
    write_text(lock_dir() / "a", "left over");
    std::filesystem::create_hard_link(lock_dir() / "a", lock_dir() / "still held by somebody");
    reporter::build_shared_mutex("a", true);
    EXPECT_EQ(read_text(lock_dir() / "a"), "");
    EXPECT_EQ(read_text(lock_dir() / "still held by somebody"), "left over");
    write_text(lock_dir() / "a", "kept");
    reporter::build_shared_mutex("a", false)->lock();
    EXPECT_EQ(read_text(lock_dir() / "a"), "kept");
    EXPECT_EQ(recorder.messages().back(), "I Already unlocked: a");
    EXPECT_TRUE(lock_is_free("a"));
}

TEST_F(file_locks, let_one_thread_in_whatever_their_names) {
    file_lock a("create_only", "a"), b("create_only", "b");
    int inside = 0;
    const auto enter = [&inside](file_lock& lock) {
        for (int i = 0; i < 200; ++i) {
            const std::lock_guard<file_lock> guard(lock);
            EXPECT_EQ(++inside, 1);
            std::this_thread::yield();
            --inside;
        }
    };
    std::thread other(enter, std::ref(b));
    enter(a);
    other.join();
}

TEST_F(file_locks, belong_to_the_thread_that_locked_them) {
    file_lock lock("create_only", "a"), other("create_only", "b");
    lock.lock();
    for (file_lock* second : {&lock, &other}) {
        EXPECT_THROW(second->lock(), std::system_error);
    }
    std::thread([&] { lock.unlock(); }).join();
    other.unlock();
    EXPECT_FALSE(lock_is_free("a"));
    lock.unlock();
    EXPECT_TRUE(lock_is_free("a"));
    lock.unlock();
    EXPECT_EQ(recorder.messages().back(), "I Already unlocked: a");
}

TEST_F(file_locks, that_failed_stay_out_of_use_and_out_of_the_way) {
    const int next_descriptor = dup(0);
    close(next_descriptor);
    file_lock lock("create_only", "a"), other("create_only", "b");
    close(next_descriptor);
    EXPECT_EQ(error_of([&] { lock.lock(); }), "Failed to lock: a");
    EXPECT_EQ(error_of([&] { lock.lock(); }), "Failed to lock: a");
    other.lock();
    other.unlock();
}
