#include "Common/run/run_files.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "Common/CommandLine.h"
#include "Common/audio/sample_codec.h"
#include "Common/audio/scratch_sounds.h"
#include "Common/bins/measured_bins.h"
#include "Common/platform.h"
#include "Common/run/constants.h"
#include "Common/run/free_space.h"
#include "Common/stream/write_taps.h"

namespace fs = boost::filesystem;

namespace level_engine {

namespace {

boost::mutex temporary_directory_mutex;

/** What the program that holds the engine gives as the folder for temporary files. */
std::string platform_directory(const RunSettings& settings) {
    boost::unique_lock<boost::mutex> lock(temporary_directory_mutex);
    char* directory = settings.find_temporary_directory ? settings.find_temporary_directory()
                                                        : copyTemporaryDirectory();
    std::string path = directory == nullptr ? "" : directory;
    std::free(directory);
    return path;
}

/** What the names of the intermediate files begin with; input_stem serves where there is no "/". */
std::string temporary_base(const RunSettings& settings, const std::string& input_stem) {
    if (!fs::exists("/")) {
        return input_stem;
    }
    const std::string directory = settings.temporary_directory.empty()
                                      ? platform_directory(settings)
                                      : settings.temporary_directory;
    if (directory.empty()) {
        throw std::runtime_error("There is no directory for temporary files.");
    }
    return "/" + directory.substr(1);
}

/**
 * Removes a file of an earlier run. It may also be a link that another user put into a shared
 * folder: a step that opened it would write over the link's target.
 */
void remove_old(const std::string& path) {
    ::unlink(path.c_str());
}

}  // namespace

RunFiles::~RunFiles() {
    ScratchSounds::of_this_thread().clear();
    MeasuredRecordings::of_this_thread().clear();
    stream::WriteTaps::of_this_thread().clear();
}

void RunFiles::place(const std::string& input, const std::string& output) {
    const std::size_t dot = input.rfind('.');
    names_ = Intermediates(temporary_base(settings_, input.substr(0, dot)), input.substr(dot));
    require_free_space(input);
    names_.require_apart(input, output);
}

std::string RunFiles::add(Intermediate file, const SF_INFO& info) {
    std::string path = names_.path(file);
    temp_files_.add(path);
    remove_old(path);
    if (hides() && Intermediates::is_audio(file)) {
        try {
            ScratchSounds::of_this_thread().reserve(path, names_.base());
            measure_as_written(file, info);
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): works without both
        }
    }
    return path;
}

std::string RunFiles::add_final(const SF_INFO& info, int format) {
    std::string path = names_.path(Intermediate::kFinal);
    remove_old(path);
    ScratchSounds::of_this_thread().drop_room();  // nothing comes after the leveled audio
    const int lent = lend_final_file(path, format);
    if (settings_.collect_findings) {
        output_meter_.attach_to(path, info.channels, lent);
    }
    return path;
}

/**
 * The last file may be written where it stays, which saves a copy: its descriptor, or -1. Not an
 * encoder's, whose length is not known before.
 */
int RunFiles::lend_final_file(const std::string& path, int format) {
    const bool wanted = hides() && settings_.open_final;
    const int lent = wanted && SampleCodec::is_plain_in(format) ? settings_.open_final() : -1;
    if (!ScratchSounds::of_this_thread().reserve_in(path, lent)) {
        return -1;
    }
    names_.lend_final(settings_.final_name);
    return lent;
}

/**
 * Has what a step writes measured on its way as the next step is going to measure it. The next step
 * rejects settings that are not numbers.
 */
void RunFiles::measure_as_written(Intermediate file, const SF_INFO& info) {
    MeasuredRecordings& recordings = MeasuredRecordings::of_this_thread();
    std::string path = names_.path(file);
    if (file == Intermediate::kGated) {
        recordings.expect<RmsOfAllSamples>(path, info, std::atoi(options::peak__bin_size.c_str()));
    } else if (file == Intermediate::kWithoutPeaks) {
        recordings.expect<RmsOfLouderChannel>(path, info, std::atoi(options::bin_size.c_str()));
    } else if (file == Intermediate::kConditioned) {
        recordings.expect<RmsOfAllSamples>(path, info, kBin_ms);
    } else if (file == Intermediate::kLeveled) {
        recordings.expect<RmsOfLouderChannel>(path, info, kBin_ms);
    }
}

bool RunFiles::exists(const std::string& path) const {
    return ScratchSounds::of_this_thread().has(path) || fs::exists(path);
}

void RunFiles::done_with(std::initializer_list<std::string> paths) {
    for (const std::string& file : paths) {
        temp_files_.markForDeletion(file);
    }
    if (!settings_.keep_intermediates) {
        temp_files_.deleteMarked();
        for (const std::string& file : paths) {
            ScratchSounds::of_this_thread().release(file);
            MeasuredRecordings::of_this_thread().forget(file);
        }
    }
}

}  // namespace level_engine
