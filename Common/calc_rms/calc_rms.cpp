#include "Common/calc_rms/calc_rms.h"

#include <boost/scoped_array.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>

#include "Common/audio/finite.h"
#include "Common/audio/sound_handle.h"
#include "Common/calc_rms/CommandLine.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/units.h"

namespace calc_rms {

namespace {

constexpr const char* kSource = "Common/calc_rms/calc_rms";
constexpr double kSilence_db = -200.0;

/** Whole frames in a bin, as samples. The product is 32 bits wide, without sign, and wraps. */
std::uint32_t bin_samples(const CCLArgs& args, const SF_INFO& info) {
    const std::uint32_t channels = static_cast<std::uint32_t>(info.channels);
    const std::uint32_t samples = static_cast<std::uint32_t>(args.bin_size_ms) * channels *
                                  static_cast<std::uint32_t>(info.samplerate) / 1000U;
    return samples - samples % channels;
}

void write_level(std::ofstream& file, const double* samples, long long count) {
    double sum = 0.0;
    for (long long i = 0; i < count; ++i) {
        sum += samples[i] * samples[i];
    }
    double level_db = linear_to_db(std::sqrt(sum / static_cast<double>(count)));
    if (level_db < kSilence_db) {
        level_db = kSilence_db;
    }
    char line[64];
    std::snprintf(line, sizeof line, "%14.12lf\n", level_db);
    file << line;
}

}  // namespace

int _tmain(int argc, const char** argv) {
    CCLArgs args;
    args.GetArgs(argc, argv);  // goes on with the names that were filled in
    SF_INFO info{};
    const SoundHandle input = open_sound_for_reading(args.input_file, info);
    if (!input) {
        return log_failure(kSource, __LINE__, "Error opening " + args.input_file);
    }
    const long long total = info.channels * info.frames;
    const std::uint32_t bin = bin_samples(args, info);
    if (bin == 0) {
        return log_failure(kSource, __LINE__,
                           "A bin of " + args.input_file + " is shorter than a frame");
    }
    std::ofstream output(args.output_file);
    if (!output) {
        return log_failure(kSource, __LINE__, "Error opening " + args.output_file + " for output");
    }
    boost::scoped_array<double> pBinData;
    allocate(pBinData, bin, "pBinData", kSource);

    CProgress progress(progress_range::kRms.low, progress_range::kRms.high);
    FiniteGuard guard(args.input_file, info);
    bool more = true;
    for (long long done = 0; done < total && more;) {
        const long long count = sf_read_double(input.get(), pBinData.get(), bin);
        more = count == bin;
        if (count > 0) {
            guard.check(pBinData.get(), count);
            write_level(output, pBinData.get(), count);
        }
        done += count;
        progress.show(static_cast<double>(done) / static_cast<double>(total));
    }
    output.close();
    return 0;
}

}  // namespace calc_rms
