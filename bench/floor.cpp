/*
 * What ten steps cost that do nothing: thirteen times over, a file's samples are read as doubles,
 * and six times they are written, through libsndfile and in large blocks, as the engine's steps
 * would. The engine's own time is held against this.
 *
 * usage: floor IN FOLDER     files of the input's format come and go in FOLDER
 */

#include <sndfile.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr sf_count_t kBlockFrames = 1 << 16;
constexpr int kWrites = 6;

/** Readings of what each writing left behind, before the next one: thirteen with the first. */
constexpr int kReadings[kWrites] = {1, 2, 2, 2, 4, 2};

SNDFILE* open_or_exit(const std::string& path, int mode, SF_INFO& info) {
    SNDFILE* file = sf_open(path.c_str(), mode, &info);
    if (file == nullptr) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), sf_strerror(nullptr));
        std::exit(1);
    }
    return file;
}

/** Reads a file whole and writes it again where a path is given. */
void pass(const std::string& from, const std::string& to) {
    SF_INFO info{};
    SNDFILE* const in = open_or_exit(from, SFM_READ, info);
    SNDFILE* const out = to.empty() ? nullptr : open_or_exit(to, SFM_WRITE, info);
    std::vector<double> block(static_cast<std::size_t>(kBlockFrames * info.channels));
    for (sf_count_t frames = 0; (frames = sf_readf_double(in, block.data(), kBlockFrames)) > 0;) {
        if (out != nullptr && sf_writef_double(out, block.data(), frames) != frames) {
            std::fprintf(stderr, "%s: %s\n", to.c_str(), sf_strerror(out));
            std::exit(1);
        }
    }
    sf_close(in);
    sf_close(out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s IN FOLDER\n", argv[0]);
        return 2;
    }
    const std::string input = argv[1];
    const std::string extension = input.substr(input.rfind('.'));
    std::string from = input;
    for (int i = 0; i < kWrites; ++i) {
        for (int reading = 1; reading < kReadings[i]; ++reading) {
            pass(from, "");
        }
        const std::string to = std::string(argv[2]) + "/floor" + std::to_string(i) + extension;
        pass(from, to);
        if (from != input) {
            std::remove(from.c_str());
        }
        from = to;
    }
    std::remove(from.c_str());
    return 0;
}
