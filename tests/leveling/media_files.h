#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/* What the tests of containers share: ffmpeg and ffprobe look at what became of a file. */

namespace media_files {

constexpr int kRate = 48000;  // of what is compared

inline std::string run(const std::string& command) {
    const ProgramResult result = run_program(command);
    EXPECT_EQ(0, result.status) << command << "\n" << result.err;
    return result.out;
}

/** Paths of a folder that holds the parts of the test files. */
class Parts {
  public:
    Parts() {
        write_text(dir_ / "meta.txt",
                   ";FFMETADATA1\ntitle=Tälk\nartist=Ann\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\n"
                   "END=3000\ntitle=One\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=3000\nEND=6000\n"
                   "title=Two\n");
        write_text(dir_ / "s.srt", "1\n00:00:01,000 --> 00:00:02,000\nHi\n");
        run("ffmpeg -v error -f lavfi -i color=red:s=64x64 -frames:v 1 " + dir_ / "c.png");
        run("ffmpeg -v error -f lavfi -i testsrc=s=96x64:r=25:d=6 -c:v libx264 -g 25 -bf 2 " +
            dir_ / "v.mp4");
    }

    /** Inputs 0 picture, 1 recording (48 kHz, 6 s), 2 tags and chapters, 3 subtitles, 4 cover. */
    std::string make(const std::string& name, const std::string& options) const {
        const std::string path = dir_ / name;
        run("ffmpeg -y -v error -i " + dir_ / "v.mp4" +
            " -t 6 -i " RECORDINGS "/reading_16k_mono.flac -i " + dir_ / "meta.txt" + " -i " +
            dir_ / "s.srt" + " -i " + dir_ / "c.png" +
            " -map_metadata 2 -map_chapters 2 -c:v copy -ar 48000 " + options + " " + path);
        return path;
    }

    std::string operator/(const std::string& name) const { return dir_ / name; }

    std::vector<std::string> entries() const { return dir_.entries(); }

  private:
    TempDir dir_;
};

inline std::string leveled_name(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    return path.substr(0, dot) + "-leveled" + path.substr(dot);
}

inline std::string level(const std::string& path, const std::string& options = "") {
    run(QUORVANE " --force " + options + " " + path);
    return leveled_name(path);
}

/** Why the program would not level the file; nothing may have been written. */
inline std::string refusal(const std::string& path, const std::string& options = "") {
    const ProgramResult result = run_program(QUORVANE " " + options + " " + path);
    EXPECT_EQ(1, result.status) << result.out;
    EXPECT_FALSE(file_exists(leveled_name(path)));
    EXPECT_THAT(result.err, testing::HasSubstr(path.substr(path.rfind('/') + 1)));
    return result.err;
}

/** The first sound, mono, as a player shows it: with silence in its gaps, from time 0 on. */
inline std::vector<float> heard(const std::string& path) {
    const std::string bytes = run("ffmpeg -v error -copyts -i " + path + " -map 0:a:0 -af " +
                                  "aresample=48000:async=1:first_pts=0 -ac 1 -f f32le -");
    std::vector<float> samples(bytes.size() / sizeof(float));
    if (!samples.empty()) {
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    }
    return samples;
}

/** How much later (ms) the second sound is in the frames from..to, by cross-correlation. */
inline double lag_ms(const std::vector<float>& a, const std::vector<float>& b, long from, long to) {
    constexpr long kMost = kRate / 50;
    double best = -1;
    long best_lag = 0;
    for (long lag = -kMost; lag <= kMost; ++lag) {
        double both = 0;
        double power = 1e-20;
        for (long i = from; i < to; i += 2) {
            const double y = static_cast<double>(b[static_cast<std::size_t>(i + lag)]);
            both += static_cast<double>(a[static_cast<std::size_t>(i)]) * y;
            power += y * y;
        }
        if (both / std::sqrt(power) > best) {
            best = both / std::sqrt(power);
            best_lag = lag;
        }
    }
    return 1000.0 * static_cast<double>(best_lag) / kRate;
}

/** The largest lag of three places in the second half. */
inline double delay_ms(const std::vector<float>& a, const std::vector<float>& b) {
    const long length = static_cast<long>(std::min(a.size(), b.size()));
    double largest = 0;
    for (double place : {0.6, 0.7, 0.85}) {
        const long from = static_cast<long>(static_cast<double>(length) * place);
        const double lag = lag_ms(a, b, from, from + kRate / 2);
        largest = std::abs(lag) > std::abs(largest) ? lag : largest;
    }
    return largest;
}

/** Of every stream but the first sound; empty where there is none. */
inline std::string copied_hashes(const std::string& path) {
    return run_program("ffmpeg -v error -i " + path + " -map 0 -map -0:a:0 -c copy -f streamhash -")
        .out;
}

/** Tags, chapters, dispositions and so on; without the fields that name the writing program. */
inline std::set<std::string> facts(const std::string& path) {
    std::istringstream lines(
        run("ffprobe -v error -of flat -show_entries "
            "format_tags:stream=codec_name,codec_type,sample_rate,channels,bits_per_raw_sample,"
            "start_time,color_primaries:stream_tags:stream_disposition:stream_side_data:"
            "chapter=start_time,end_time:chapter_tags " +
            path));
    std::set<std::string> kept;
    for (std::string line; std::getline(lines, line);) {
        std::string lower = line;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const auto has = [&](const char* text) { return lower.find(text) != std::string::npos; };
        if (!has("encoder") && !has("tags.duration") && !has("tags.software") &&
            !has("handler_name") && !has("minor_version") && !has("compatible_brands") &&
            !has("itunsmpb")) {
            kept.insert(line);
        }
    }
    return kept;
}

/** The lines that only one of the two files has. */
inline std::string changed_facts(const std::string& before, const std::string& after) {
    std::vector<std::string> changed;
    const auto a = facts(before);
    const auto b = facts(after);
    std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(),
                                  std::back_inserter(changed));
    std::string text;
    for (const std::string& line : changed) {
        text += line + "\n";
    }
    return text;
}

inline std::string codec_and_rate(const std::string& path) {
    const auto json = nlohmann::json::parse(run(QUORVANE " --analyze --quiet --json - " + path));
    return json["media"]["codec"].get<std::string>() + " " +
           std::to_string(json["media"]["bit_rate_bps"].get<long>() / 1000) + "k";
}

}  // namespace media_files
