/*
 * A server's work without its network: eight uploads at once, each a recording of unlike form that
 * arrives in pieces, on a thread of its own. Prints a line for each in their order.
 *
 * find_package(quorvane REQUIRED)
 * target_link_libraries(server PRIVATE quorvane::quorvane)
 */
#include <quorvane/quorvane.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kUploads = 8;
constexpr int kSeconds = 3;

/** Syllables of a tone that becomes louder in the middle. */
std::vector<float> recording(int rate_hz, double hz) {
    std::vector<float> samples;
    for (int i = 0; i < kSeconds * rate_hz; ++i) {
        const double t = static_cast<double>(i) / rate_hz;
        const double level = std::fmod(t, 0.5) < 0.4 ? (t < 1.5 ? 0.05 : 0.4) : 0.001;
        samples.push_back(static_cast<float>(level * std::sin(2 * 3.14159265 * hz * t)));
    }
    return samples;
}

/** What a request's thread does; the answer's line. */
std::string serve(int number) {
    const int rate_hz = number % 2 == 0 ? 48000 : 16000;
    const std::vector<float> samples = recording(rate_hz, 150 + 20 * number);
    const std::unique_ptr<quorvane_leveler, void (*)(quorvane_leveler*)> leveler(quorvane_new(),
                                                                                 quorvane_free);
    quorvane_options options;
    quorvane_options_init(&options, sizeof options);
    options.target = number % 3 == 0 ? "podcast" : nullptr;
    int code = quorvane_configure(leveler.get(), &options);
    if (code == QUORVANE_OK) {
        code = quorvane_begin(leveler.get(), QUORVANE_FLOAT32, rate_hz, 1);
    }
    constexpr std::size_t kPacket = 1000;
    for (std::size_t at = 0; code == QUORVANE_OK && at < samples.size(); at += kPacket) {
        quorvane_audio audio{};
        audio.size = sizeof audio;
        audio.type = QUORVANE_FLOAT32;
        audio.sample_rate_hz = rate_hz;
        audio.channels = 1;
        audio.frames = kPacket;
        audio.samples = samples.data() + at;
        code = quorvane_write(leveler.get(), &audio);
    }
    if (code == QUORVANE_OK) {
        code = quorvane_finish(leveler.get());
    }
    if (code != QUORVANE_OK) {
        return quorvane_last_error(leveler.get());
    }
    quorvane_loudness loudness{};
    loudness.size = sizeof loudness;
    quorvane_get_loudness(leveler.get(), QUORVANE_AFTER, &loudness);
    char line[100];
    std::snprintf(line, sizeof line, "upload %d: %.1f LUFS, %.1f dBTP", number,
                  loudness.integrated_lufs, loudness.true_peak_dbtp);
    return line;
}

}  // namespace

int main() {
    std::vector<std::string> answers(kUploads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kUploads; ++i) {
        threads.emplace_back([&answers, i] { answers[static_cast<std::size_t>(i)] = serve(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& answer : answers) {
        std::puts(answer.c_str());
    }
    return 0;
}
