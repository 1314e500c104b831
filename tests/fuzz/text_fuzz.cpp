/*
 * The text files between the steps into the steps that read them: the first byte chooses which.
 */
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "Common/apply_gains/ag_common.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "Common/step/failure.h"
#include "Common/wrap_segment/wrap_segment.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

/** Half a second of a saw wave, 8 kHz, 16 bits: a sound for the text to be about. */
std::string sound() {
    std::vector<std::uint8_t> bytes = {'R', 'I', 'F',  'F',  0x64, 0x1F, 0,    0,    'W',  'A', 'V',
                                       'E', 'f', 'm',  't',  ' ',  16,   0,    0,    0,    1,   0,
                                       1,   0,   0x40, 0x1F, 0,    0,    0x80, 0x3E, 0,    0,   2,
                                       0,   16,  0,    'd',  'a',  't',  'a',  0x40, 0x1F, 0,   0};
    for (int i = 0; i < 4000; ++i) {
        bytes.push_back(0);
        bytes.push_back(static_cast<std::uint8_t>(i));
    }
    return fuzz::file("sound.wav", bytes.data(), bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    if (size < 1) {
        return 0;
    }
    static const std::string audio = sound();
    const std::string in = fuzz::file("in.txt", data + 1, size - 1);
    const std::string out = fuzz::folder() + "out";
    try {
        switch (data[0] % 4) {
            case 0:
                wrap_segment::wrap_segment(in, "", "", out, -12.0, 8000, 0.05);
                break;
            case 1:
                fuzz::call(calculate_gains::_tmain,
                           {"calculate_gains", "--gain-limit", "24", audio, in, out, out + "2"});
                break;
            case 2:
                fuzz::call(smooth_gains::_tmain, {"smooth_gains", "-a", "40", "-b", "2", in, out});
                break;
            default:
                apply_gains::ApplyGains(50, in, audio, out + ".wav");
                break;
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the driver's to report
    }
    return 0;
}
