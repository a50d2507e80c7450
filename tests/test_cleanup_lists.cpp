// Process exit, the two clean-up lists and the deletion of thread-local
// keys.
#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "output_capture.h"
#include "service/messages.h"

namespace {

std::vector<int> ran;
int exit_code_seen = -1;

void record(void* argument) { ran.push_back(*static_cast<int*>(argument)); }
void note_exit(int code) { exit_code_seen = code; }

// Keeps the exit handler of a test from reaching the next one, and leaves
// both lists empty.
class Cleanup : public ::testing::Test {
protected:
    void SetUp() override {
        ran.clear();
        exit_code_seen = -1;
        previous_ = tarn_serv_set_exit_handler(note_exit);
    }
    void TearDown() override {
        tarn_serv_core_cleanup();
        tarn_serv_thr_cleanup();
        tarn_serv_set_exit_handler(previous_);
    }
    tarn_exit_fn previous_ = nullptr;
};

TEST_F(Cleanup, FunctionsRunInReverseOrderWithTheirArguments) {
    int values[3] = {1, 2, 3};
    for (int& v : values) tarn_serv_core_register_cleanup(record, &v);
    tarn_serv_core_cleanup();
    EXPECT_EQ(ran, (std::vector<int>{3, 2, 1}));
    // The list is empty afterwards: a second run does nothing.
    tarn_serv_core_cleanup();
    EXPECT_EQ(ran.size(), 3u);
}

TEST_F(Cleanup, TheTwoListsAreSeparate) {
    int core = 10, thr = 20;
    tarn_serv_core_register_cleanup(record, &core);
    tarn_serv_thr_register_cleanup(record, &thr);
    tarn_serv_thr_cleanup();
    EXPECT_EQ(ran, (std::vector<int>{20}));
    tarn_serv_core_cleanup();
    EXPECT_EQ(ran, (std::vector<int>{20, 10}));
}

TEST_F(Cleanup, CoreListTakes32AndTheNextRegistrationExitsWith3) {
    std::vector<int> values(33);
    for (int i = 0; i < 32; ++i) {
        values[i] = i;
        tarn_serv_core_register_cleanup(record, &values[i]);
    }
    EXPECT_EQ(exit_code_seen, -1);
    values[32] = 32;
    tarn_serv_core_register_cleanup(record, &values[32]);
    EXPECT_EQ(exit_code_seen, 3);
    tarn_serv_core_cleanup();
    ASSERT_EQ(ran.size(), 32u);
    EXPECT_EQ(ran.front(), 31);
    EXPECT_EQ(ran.back(), 0);
}

TEST_F(Cleanup, ThreadLayerListTakes8) {
    std::vector<int> values(9);
    for (int i = 0; i < 8; ++i) tarn_serv_thr_register_cleanup(record, &values[i]);
    EXPECT_EQ(exit_code_seen, -1);
    tarn_serv_thr_register_cleanup(record, &values[8]);
    EXPECT_EQ(exit_code_seen, 3);
    tarn_serv_thr_cleanup();
    EXPECT_EQ(ran.size(), 8u);
}

TEST_F(Cleanup, OverflowWithoutHandlerEndsTheProcessWithStatus3) {
    const auto result = capture::run_in_child([] {
        tarn_serv_set_exit_handler(nullptr);
        static int value = 0;
        for (int i = 0; i < 33; ++i) tarn_serv_core_register_cleanup(record, &value);
        std::printf("not reached");
    });
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
}

TEST_F(Cleanup, RegistrationsFromManyThreadsAreAllKept) {
    static int value = 1;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 8; ++i) tarn_serv_core_register_cleanup(record, &value);
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(exit_code_seen, -1);
    tarn_serv_core_cleanup();
    EXPECT_EQ(ran.size(), 32u);
}

TEST(ServExit, CustomHandlerReplacesExitAndReturnsThePreviousOne) {
    EXPECT_EQ(tarn_serv_set_exit_handler(note_exit), nullptr);
    exit_code_seen = -1;
    tarn_serv_exit(5);
    EXPECT_EQ(exit_code_seen, 5);
    EXPECT_EQ(tarn_serv_set_exit_handler(nullptr), note_exit);
}

TEST(ServExit, WithoutHandlerTheProcessExitsWithTheCode) {
    const auto result = capture::run_in_child([] {
        std::printf("flushed by exit");
        tarn_serv_exit(7);
    });
    EXPECT_EQ(result.status, 7);
    EXPECT_EQ(result.out, "flushed by exit");
}

TEST(TlsDestroy, DeletesAnExistingKeyOnce) {
    tarn_tls_key_t record{};
    ASSERT_EQ(pthread_key_create(&record.key, nullptr), 0);
    record.flags = 1;
    int value = 0;
    ASSERT_EQ(pthread_setspecific(record.key, &value), 0);
    tarn_tls_destroy(&record);
    EXPECT_EQ(record.flags, 0);
    EXPECT_EQ(pthread_setspecific(record.key, &value), EINVAL);
    // A second destroy, or one of a record never created, does nothing.
    tarn_tls_destroy(&record);
    tarn_tls_destroy(nullptr);
    EXPECT_EQ(record.flags, 0);
}

TEST(TlsDestroy, KeyWithoutTheExistsBitIsLeftAlone) {
    tarn_tls_key_t record{};
    ASSERT_EQ(pthread_key_create(&record.key, nullptr), 0);
    record.flags = 2;
    tarn_tls_destroy(&record);
    EXPECT_EQ(record.flags, 2);
    int value = 0;
    EXPECT_EQ(pthread_setspecific(record.key, &value), 0);
    pthread_key_delete(record.key);
}

TEST(TlsDestroy, RunsFromTheCleanupList) {
    tarn_tls_key_t record{};
    ASSERT_EQ(pthread_key_create(&record.key, nullptr), 0);
    record.flags = 1;
    tarn_serv_core_register_cleanup(tarn_tls_destroy, &record);
    tarn_serv_core_cleanup();
    EXPECT_EQ(record.flags, 0);
}

}  // namespace
