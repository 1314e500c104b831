/*
 * Audio bytes into a whole run of the engine. Whatever libsndfile makes of them, the run ends with
 * one of its three results, and a file that it delivers is readable and, if it was leveled and not
 * copied, as long as the input says it is.
 */
#include <sndfile.h>

#include <cstdlib>
#include <string>

#include "Common/level.h"
#include "leveling/engine/hooks.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

int quiet(void* /*context*/, float /*fraction*/) {
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    const std::string in = fuzz::file("in.wav", data, size);
    const std::string out = fuzz::folder() + "out.wav";
    hooks::use_temporary_directory(fuzz::folder());
    std::string words[] = {"", "--input-file", in, "--output-file", out};
    char* argv[] = {&words[0][0], &words[1][0], &words[2][0], &words[3][0], &words[4][0], nullptr};
    const int result = levelMain(5, argv, "", quiet, nullptr);
    if (result == 0 && hooks::delivery() == hooks::kDelivered) {
        SF_INFO info{};
        SNDFILE* leveled = sf_open(out.c_str(), SFM_READ, &info);
        if (leveled == nullptr || info.frames < 1) {
            std::abort();  // a success that cannot be played
        }
        sf_close(leveled);
    }
    std::remove(out.c_str());
    return 0;
}
