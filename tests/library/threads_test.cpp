#include <gmock/gmock.h>

#include <thread>

#include "tests/library/library_support.h"

namespace {

constexpr int kThreads = 8;

/** What a thread does: unlike the others in its options, type, channels and length. */
std::vector<char> work(int number) {
    constexpr int kTypes[] = {QUORVANE_FLOAT32, QUORVANE_FLOAT64, QUORVANE_INT16, QUORVANE_INT32};
    constexpr const char* kTargets[] = {nullptr, "podcast", "lufs=-20:tp=-2"};
    const Signal signal = signals::speech(1.5 + 0.2 * number, 16000, 1 + number % 2);
    quorvane_options options = default_options();
    options.plain = number % 2;
    options.target = kTargets[number % 3];
    options.second_thread = number / 4;
    options.memory_bytes = number % 5 == 0 ? 1 : 0;
    const Handle leveler = new_leveler(options);
    return leveled(leveler, frames_of(signal, kTypes[number % 4]));
}

TEST(LibraryThreads, LevelSideBySideWhatEachWouldLevelAlone) {
    std::vector<std::vector<char>> alone(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        alone[i] = work(i);
    }
    std::vector<std::vector<char>> together(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] { together[i] = work(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(alone, together);
}

TEST(LibraryThreads, FreeALevelerThatAnotherOneUsed) {
    const Frames frames = frames_of(signals::speech(1.0, 16000), QUORVANE_FLOAT32);
    quorvane_options options = default_options();
    options.second_thread = 1;
    Handle leveler = new_leveler(options);
    std::thread([&] { leveled(leveler, frames); }).join();
    EXPECT_STRNE("", quorvane_verdict(leveler.get()));
    std::thread([&] { leveler.reset(); }).join();
}

TEST(LibraryThreads, CancelTheCallOfAnotherOne) {
    const Frames frames = frames_of(signals::speech(1.0, 16000), QUORVANE_FLOAT32);
    const Handle leveler = new_leveler();
    std::thread([&] { quorvane_cancel(leveler.get()); }).join();
    std::vector<char> result(frames.bytes.size());
    const quorvane_audio audio = frames.audio();
    const quorvane_buffer buffer = buffer_of(result);
    EXPECT_EQ(QUORVANE_CANCELLED, quorvane_level(leveler.get(), &audio, &buffer));
    EXPECT_EQ(QUORVANE_CANCELLED, quorvane_measure(leveler.get(), &audio)) << "until it is cleared";
    quorvane_clear_cancel(leveler.get());
    EXPECT_EQ(QUORVANE_OK, quorvane_measure(leveler.get(), &audio));
}

}  // namespace
