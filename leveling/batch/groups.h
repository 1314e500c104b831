#pragma once

#include <string>
#include <vector>

#include "leveling/inputs/plan.h"
#include "leveling/request/request.h"

namespace quorvane {

/**
 * Makes one group of all files of a plan that are to be worked on, and adds the mix where one is
 * requested. Throws UsageError where they are not one conversation, or no mix can be written there.
 */
void make_group(const Request& request, std::vector<PlannedFile>& files);

/** The inputs of a plan's tracks, in order. */
std::vector<std::string> tracks_of(const std::vector<PlannedFile>& files);

/**
 * A group is done or not done as one: where not every output is up to date, those that are will be
 * made again, and where one has to be left alone, all are.
 */
void judge_group(std::vector<PlannedFile>& files);

/**
 * Looks for tracks of one conversation among files that would be leveled each by itself: files of
 * equal length in one folder. They fail with a sentence that names them and what to do, as the
 * spill of the other voices would be raised to the level of a voice.
 *
 * seconds: of each file, 0 where it is not known.
 */
void refuse_conversations(std::vector<PlannedFile>& files, const std::vector<double>& seconds);

/** Where one file of a group cannot be worked on, none is. */
void fail_group(std::vector<PlannedFile>& files);

}  // namespace quorvane
