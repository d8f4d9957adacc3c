#include "CommandLine/OrderedRun.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(OrderedRun, orderWindowAndMemory) {
    constexpr std::size_t count = 500, ahead = 8, memory = 100;
    std::atomic<std::size_t> given = 0, held = 0, mostHeld = 0, furthest = 0;
    OrderedRun run(ahead, memory, [&](const OrderedRun::Outcome& outcome) {
        EXPECT_EQ(outcome.messages.at(0).report, std::to_string(given));
        ++given;
    });
    std::vector<std::jthread> workers;
    for (int i = 0; i < 6; ++i) {
        workers.emplace_back([&] {
            for (;;) {
                const std::size_t number = run.take();
                if (number >= count) return;  // there turns out to be nothing for it
                furthest = std::max(furthest.load(), number - std::min(number, given.load()));
                const std::size_t bytes =
                    number % 50 == 0 ? 1000 : 30;  // some are larger than the whole bound
                run.reserve(number, bytes);
                if (bytes <= memory) mostHeld = std::max(mostHeld.load(), held += bytes);
                std::this_thread::yield();
                if (bytes <= memory) held -= bytes;
                run.finish(number, {{{.report = std::to_string(number)}}});
            }
        });
    }
    workers.clear();
    EXPECT_EQ(given, count);
    EXPECT_LE(furthest, ahead);
    EXPECT_LE(mostHeld, memory + 30);  // the one that is next in order does not wait
}

/// So that those that wait are no more than there are workers.
TEST(OrderedRun, longReportsWaitForTheirTurn) {
    std::string text;
    OrderedRun run(10, 100, [&](const OrderedRun::Outcome& outcome) {
        const OrderedRun::Message& message = outcome.messages.at(0);
        text += message.report;
        if (message.longReport) message.longReport([&](std::string_view piece) { text += piece; });
    });
    for (int i = 0; i < 3; ++i) run.take();
    std::atomic<bool> isDone = false;
    std::jthread worker([&] {
        run.finish(2,
                   {{{.longReport = [](const OrderedRun::Sink& sink) { return sink("2"), std::string(); }}}});
        isDone = true;
    });
    run.finish(1, {{{.report = "1"}}});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(isDone);
    run.finish(0, {{{.report = "0"}}});
    worker.join();
    EXPECT_EQ(text, "012");
}

}  // namespace
}  // namespace quillmark
