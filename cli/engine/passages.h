#pragma once

#include <optional>
#include <string>

#include "cli/facts/run_facts.h"

namespace cli {

/**
 * Keeps the small text files of an engine run, which the engine removes as it goes, under second
 * names in a folder of their own.
 */
class KeptFiles {
  public:
    /** `base` is what the names of the engine's intermediate files begin with. */
    KeptFiles(std::string base, std::string folder);

    /** Keeps what exists by now. Cheap: a link for each file, once. */
    void keep();

    /**
     * The cues, levels and gains of the run as passages and a gain curve; nothing if the run ended
     * before they were complete. The frame count ends the last passage.
     */
    std::optional<Leveling> read(std::int64_t frames) const;

  private:
    std::string kept(const char* name) const { return folder_ + "/" + name; }

    std::string base_;
    std::string folder_;
};

}  // namespace cli
