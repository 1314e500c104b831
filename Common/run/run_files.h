#pragma once

#include <sndfile.h>

#include <initializer_list>
#include <string>

#include "Common/outcome.h"
#include "Common/run/intermediates.h"
#include "Common/run/output_meter.h"
#include "Common/run/run_settings.h"
#include "Common/run/temp_files.h"

namespace level_engine {

/**
 * The intermediate files of a run: which of them have a name on the disk, what is measured while
 * they are written, and when they are removed. Before each step this class fills the tables by path
 * (scratch files, measured bins) that the step looks in; they belong to the run's thread.
 */
class RunFiles {
  public:
    explicit RunFiles(const RunSettings& settings) : settings_(settings) {}

    RunFiles(const RunFiles&) = delete;
    RunFiles& operator=(const RunFiles&) = delete;

    /** Leaves the files on the disk where they are and clears the tables of the run's thread. */
    ~RunFiles();

    /**
     * Chooses the files' paths. Throws std::runtime_error without a temporary folder or enough free
     * space, or when input or output is one of these paths.
     */
    void place(const std::string& input, const std::string& output);

    std::string path(Intermediate file) const { return names_.path(file); }

    const Intermediates& names() const { return names_; }

    /** Prepares for a file that a step will write; returns its path. info: of the input. */
    std::string add(Intermediate file, const SF_INFO& info);

    /** The same for the last file. format: of the output. */
    std::string add_final(const SF_INFO& info, int format);

    /** Whether a file was written at this path. */
    bool exists(const std::string& path) const;

    /** Removes the files that no later step reads. */
    void done_with(std::initializer_list<std::string> paths);

    /** Copies to found what was measured while the last file was written. */
    void measured_output(LevelFindings& found) const { output_meter_.tell(found); }

  private:
    bool hides() const { return settings_.hide_intermediates && !settings_.keep_intermediates; }

    void measure_as_written(Intermediate file, const SF_INFO& info);
    int lend_final_file(const std::string& path, int format);

    const RunSettings& settings_;
    Intermediates names_;
    TempFileList temp_files_;
    OutputMeter output_meter_;
};

}  // namespace level_engine

using level_engine::RunFiles;
