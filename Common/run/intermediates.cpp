#include "Common/run/intermediates.h"

#include <boost/filesystem.hpp>
#include <stdexcept>
#include <utility>

#include "Common/files/same_file.h"

namespace fs = boost::filesystem;

namespace level_engine {

namespace {

struct Name {
    Intermediate file;
    const char* suffix;
    bool is_audio;  // then the input's extension follows
    int step;       // that writes it
};

// In the order of the enumeration, which is their index.
constexpr Name kNames[] = {
    {Intermediate::kFiltered, "_01", true, 1},
    {Intermediate::kGated, "_02", true, 2},
    {Intermediate::kWithoutPeaks, "_03", true, 3},
    {Intermediate::kConditioned, "_04", true, 4},
    {Intermediate::kLevels, "_05.txt", false, 5},
    {Intermediate::kCues, "_06.clt", false, 6},
    {Intermediate::kSegmentLevels, "_07.txt", false, 7},
    {Intermediate::kGains, "_08.txt", false, 7},
    {Intermediate::kSmoothedGains, "_09.txt", false, 8},
    {Intermediate::kLeveled, "_10", true, 9},
    {Intermediate::kFinal, "_final", true, 10},
};

/** A path, and where it leads through links; empty where that cannot be read. */
class Place {
  public:
    explicit Place(std::string path) : path_(std::move(path)) {
        boost::system::error_code ignored;
        canonical_ = fs::weakly_canonical(path_, ignored);
    }

    /** A file in a folder: where there is none yet, the folder alone decides where it leads. */
    Place(const Place& folder, std::string path) : path_(std::move(path)) {
        boost::system::error_code ignored;
        is_there_ = fs::status(path_, ignored).type() != fs::file_not_found;
        canonical_ = is_there_ ? fs::weakly_canonical(path_, ignored)
                               : folder.canonical_ / fs::path(path_).filename();
    }

    /** One file, now or once both are written: by path, by device and inode, or through links. */
    bool will_be_same_file(const Place& other) const {
        return path_ == other.path_ || (!canonical_.empty() && canonical_ == other.canonical_) ||
               (is_there_ && other.is_there_ && is_same_file(path_, other.path_));
    }

  private:
    std::string path_;
    fs::path canonical_;
    bool is_there_ = true;
};

}  // namespace

Intermediates::Intermediates(std::string base, std::string extension)
    : base_(std::move(base)), extension_(std::move(extension)) {}

std::string Intermediates::path(Intermediate file) const {
    const Name& name = kNames[static_cast<std::size_t>(file)];
    return base_ + name.suffix + (name.is_audio ? extension_ : "");
}

bool Intermediates::is_audio(Intermediate file) {
    return kNames[static_cast<std::size_t>(file)].is_audio;
}

LevelFile Intermediates::file_in(const std::string& text) const {
    for (const Name& name : kNames) {
        if (!base_.empty() && text.find(path(name.file)) != std::string::npos) {
            return has_lent_final_ && name.file == Intermediate::kFinal ? kLevelFinalFile
                                                                        : kLevelTemporaryFile;
        }
    }
    return kLevelNoFile;
}

void Intermediates::remove_all() const {
    for (const Name& name : kNames) {
        boost::system::error_code ignored;
        if (!base_.empty()) {
            fs::remove(path(name.file), ignored);
        }
    }
}

std::string Intermediates::without_paths(std::string text) const {
    if (base_.empty()) {
        return text;
    }
    for (const Name& name : kNames) {
        const std::string path = this->path(name.file);
        const std::string words = has_lent_final_ && name.file == Intermediate::kFinal
                                      ? kFinalMark
                                      : "the temporary file of step " + std::to_string(name.step);
        for (std::size_t at = 0; (at = text.find(path, at)) != std::string::npos;) {
            text.replace(at, path.size(), words);
            at += words.size();
        }
    }
    return text;
}

void Intermediates::require_apart(const std::string& input, const std::string& output) const {
    const Place from(input);
    const Place to(output);
    const Place folder(fs::path(base_).parent_path().string());
    for (const Name& name : kNames) {
        const Place temporary(folder, path(name.file));
        const bool over_input = temporary.will_be_same_file(from);
        if (over_input || temporary.will_be_same_file(to)) {
            throw std::runtime_error(input + ": step " + std::to_string(name.step) +
                                     " would write its temporary file over " +
                                     (over_input ? "it" : "the output " + output) +
                                     ", so nothing was done");
        }
    }
}

}  // namespace level_engine
