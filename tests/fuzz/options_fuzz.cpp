/*
 * Command lines and options files, of the engine, of every step, and of the people's command: the
 * first byte chooses whose, the second whether the rest is an options file or words cut at zero
 * bytes. Files that are named do not exist, so a parse that succeeds ends there.
 */
#include <exception>
#include <string>
#include <vector>

#include "Common/CommandLine.h"
#include "Common/calc_rms/calc_rms.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "cli/options/settings.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

constexpr std::size_t kMostWords = 16;

void parse_engine(int argc, const char** argv) {
    std::vector<std::string> words(argv, argv + argc);
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(&word[0]);
    }
    pointers.push_back(nullptr);
    CCLArgs().GetArgs(argc, pointers.data());
}

void parse_command(int argc, const char** argv) {
    quorvane::parse_command_line(argc, argv);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryBound bound(size);
    if (size < 2) {
        return 0;
    }
    std::vector<std::string> words = {"program"};
    if (data[1] % 2 == 0) {
        words.push_back("--options-file=" + fuzz::file("options", data + 2, size - 2));
    } else {
        for (const std::string& word : fuzz::words(data + 2, size - 2, kMostWords)) {
            words.push_back(word);
        }
    }
    switch (data[0] % 10) {
        case 0:
            fuzz::call(parse_engine, words);
            break;
        case 1:
            fuzz::call(highpass::_tmain, words);
            break;
        case 2:
            fuzz::call(gate::_tmain, words);
            break;
        case 3:
            fuzz::call(reduce_loud_peak::_tmain, words);
            break;
        case 4:
            fuzz::call(reduce_loud::_tmain, words);
            break;
        case 5:
            fuzz::call(calc_rms::_tmain, words);
            break;
        case 6:
            fuzz::call(calculate_gains::_tmain, words);
            break;
        case 7:
            fuzz::call(smooth_gains::_tmain, words);
            break;
        case 8:
            fuzz::call(normalize::_tmain, words);
            break;
        default:
            fuzz::call(parse_command, words);
            break;
    }
    return 0;
}
