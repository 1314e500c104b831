#pragma once

#include <map>
#include <string>
#include <vector>

#include "leveling/inputs/plan.h"
#include "leveling/request/request.h"

namespace quorvane {

/**
 * Makes groups of the files of a plan that are to be worked on, and adds the mixes where they are
 * requested: one conversation for each folder where all files were found in folders, else one of
 * them all. Throws UsageError where they do not form a conversation, or no mix can be written
 * there.
 */
void make_groups(const Request& request, std::vector<PlannedFile>& files);

/** The groups in the JSON of a dry run. */
class PlannedGroups {
  public:
    /** Gives a file the group of its line. */
    void add(const FileFacts& facts, PlannedFile& file);

    /**
     * A group with missing lines gets a problem. Throws UsageError where the options request a
     * conversation or a mix and the plan holds none.
     */
    void check(const Request& request, std::vector<PlannedFile>& files) const;

  private:
    std::map<std::string, int> group_of_;  // by the first track
};

/** The inputs of the tracks of a plan's group, in order. */
std::vector<std::string> tracks_of(const std::vector<PlannedFile>& files, int group);

/** What a line about a file of a group says, so that a plan and a merge know the group again. */
void add_conversation(const PlannedFile& file, FileFacts& facts);

/**
 * A group is done or not done as one: where not every output is up to date, those that are will be
 * made again, and where one has to be left alone, all are. Outputs that were made from different
 * states of their tracks are not up to date.
 *
 * input_hashes: of each file's Judgement.
 */
void judge_groups(std::vector<PlannedFile>& files,
                  const std::vector<std::vector<std::string>>& input_hashes);

/**
 * Looks for tracks of one conversation among files that would be leveled each by itself: files of
 * equal length in one folder. They fail with a sentence that names them and what to do, as the
 * spill of the other voices would be raised to the level of a voice.
 *
 * seconds: of each file, 0 where it is not known.
 */
void refuse_conversations(std::vector<PlannedFile>& files, const std::vector<double>& seconds);

/** Where one file of a group cannot be worked on, none of the group is. */
void fail_groups(std::vector<PlannedFile>& files);

}  // namespace quorvane
