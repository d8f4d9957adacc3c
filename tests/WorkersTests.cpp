#include "QuillmarkKit/Support/Workers.h"

#include <latch>
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Workers, doAllJobsBeforeTheyFinishInOrderWhenAlone) {
    std::vector<int> order;
    Workers one(1);
    for (int i = 0; i < 1000; ++i) one.add([&order, i] { order.push_back(i); });
    one.finish();
    one.add([&order] { order.push_back(-1); });
    ASSERT_EQ(order.size(), 1000u);
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(Workers, stopDropsWhatHasNotBegunAndWaitsForTheRest) {
    std::atomic<int> begun = 0, ended = 0;
    std::latch bothRun(3);
    Workers two(2);
    for (int i = 0; i < 2; ++i) {
        two.add([&] {
            ++begun;
            bothRun.arrive_and_wait();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ++ended;
        });
    }
    for (int i = 0; i < 100; ++i) {
        two.add([&] { ++begun; });
    }
    bothRun.arrive_and_wait();
    two.stop();
    EXPECT_EQ(ended, 2);
    EXPECT_LT(begun, 102);
}

}  // namespace
}  // namespace quillmark
