#include "QuillmarkKit/Support/Once.h"

#include "tests/Test.h"

namespace quillmark {
namespace {

using namespace std::chrono_literals;
using Numbers = Once<int>;
using For = Numbers::For;
using Made = Numbers::Made;
constexpr auto noDeadline = Numbers::Clock::time_point::max();

/// Until the others, who have begun, wait as well; it need not be long enough for the tests to hold.
void letOthersWait(const std::atomic<int>& begun, int count) {
    while (begun < count) std::this_thread::yield();
    std::this_thread::sleep_for(20ms);
}

TEST(Once, oneIsMadeHoweverManyWait) {
    for (const For whom : {For::everybody, For::thoseWhoWait}) {
        Numbers numbers;
        std::atomic<int> begun = 0, made = 0;
        const auto get = [&] {
            ++begun;
            return *numbers.get("x", {}, noDeadline, [&] {
                letOthersWait(begun, 8);
                return Made{++made, whom};
            });
        };
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i) threads.emplace_back([&] { EXPECT_EQ(get(), 1); });
        threads.clear();
        EXPECT_EQ(numbers.kept("x") != nullptr, whom == For::everybody);
        EXPECT_EQ(get(), whom == For::everybody ? 1 : 2);  // who comes later has it made anew
    }
}

TEST(Once, aWaiterTakesThePlaceOfAMakerWhoMakesNothing) {
    for (const bool throws : {false, true}) {
        Numbers numbers;
        std::atomic<int> begun = 0;
        std::jthread maker([&] {
            const auto get = [&] {
                return *numbers.get("x", {}, noDeadline, [&] {
                    ++begun;
                    letOthersWait(begun, 2);
                    if (throws) throw std::bad_alloc();
                    return Made{1, For::maker};
                });
            };
            if (throws) {
                EXPECT_THROW(get(), std::bad_alloc);
            } else {
                EXPECT_EQ(get(), 1);
            }
        });
        while (begun == 0) std::this_thread::yield();
        ++begun;
        EXPECT_EQ(*numbers.get("x", {}, Numbers::Clock::now() + 10s, [] { return Made{2}; }), 2);
    }
}

TEST(Once, whoOnlyWaitsStopsOrGivesUp) {
    Numbers numbers;
    std::atomic<int> begun = 0, left = 0;
    std::jthread maker([&] {
        EXPECT_EQ(*numbers.get("x", {}, noDeadline,
                               [&] {
                                   ++begun;
                                   while (left == 0) std::this_thread::yield();
                                   return Made{1};
                               }),
                  1);
    });
    while (begun == 0) std::this_thread::yield();
    std::stop_source stop;
    stop.request_stop();
    const auto never = [] { return Made{2}; };
    EXPECT_EQ(numbers.get("x", stop.get_token(), noDeadline, never), nullptr);
    EXPECT_EQ(numbers.get("x", {}, Numbers::Clock::now() + 1ms, never), nullptr);
    EXPECT_EQ(*numbers.get("y", stop.get_token(), noDeadline, never), 2);  // nobody is waited for
    ++left;
}

}  // namespace
}  // namespace quillmark
