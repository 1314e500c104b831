#pragma once

#include <string>
#include <vector>

#include "Common/outcome.h"

namespace level_engine {

/*
 * The files that pass from step to step. All of a run stand in the platform's directory for
 * temporary files under names that do not depend on the input's, so that what an earlier run left
 * is written over and not gathered.
 */
enum class Intermediate {
    kFiltered,       // "_01", audio of step 1
    kGated,          // "_02"
    kWithoutPeaks,   // "_03"
    kConditioned,    // "_04"
    kLevels,         // "_05.txt", a level in dB per bin
    kCues,           // "_06.clt"
    kSegmentLevels,  // "_07.txt", a gated level in dB per segment
    kGains,          // "_08.txt", a linear gain per bin
    kSmoothedGains,  // "_09.txt"
    kLeveled,        // "_10", audio
    kFinal           // "_final", audio
};

class Intermediates {
  public:
    Intermediates() = default;

    /** base: what each name begins with, a folder with its "/". extension: the audio's, with ".".
     */
    Intermediates(std::string base, std::string extension);

    std::string path(Intermediate file) const;

    static bool is_audio(Intermediate file);

    /** What each name begins with. */
    const std::string& base() const { return base_; }

    /** The final file is the caller's own and has this name in messages; its path here is empty. */
    void lend_final(const std::string& name) {
        has_lent_final_ = true;
        final_name_ = name;
    }

    /** What messages call the caller's own final file. */
    const std::string& final_name() const { return final_name_; }

    /** Stands for final_name() in without_paths(). */
    static constexpr const char* kFinalMark = "\x01the output\x01";

    /** Which of these files a text names. */
    LevelFile file_in(const std::string& text) const;

    /** Removes those that are there. */
    void remove_all() const;

    /**
     * The same text with every path of these files replaced by words that say what the file is, for
     * people who do not know of them; kFinalMark for the caller's final file.
     */
    std::string without_paths(std::string text) const;

    /**
     * Throws std::runtime_error if the input or the output is one of these files, by its path or
     * because the file system has one file under both names: it would be written over.
     */
    void require_apart(const std::string& input, const std::string& output) const;

  private:
    std::string base_;
    std::string extension_;
    bool has_lent_final_ = false;
    std::string final_name_;
};

}  // namespace level_engine

using level_engine::Intermediate;
using level_engine::Intermediates;
