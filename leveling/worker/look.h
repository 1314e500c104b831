#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/worker/job.h"

namespace quorvane {

/**
 * What the header of a job's input says, through the backend that its worker will use. The outcome
 * is Planned, or Failed where the file cannot be leveled. Unless the job asks to look inside, a
 * file whose probe runs decoders is left to its worker: it keeps a format that is empty. Nothing is
 * thrown. For a worker: it parses what strangers wrote.
 */
FileFacts look_into(const Job& job);

/**
 * The same of many files, in a confined process. A file at which that process dies is a failure
 * with its cause, and the others get a new one. Call it from a thread that waits for it.
 */
std::vector<FileFacts> look_into_all(const std::vector<Job>& jobs);

/** For a worker: which of the jobs' inputs are tracks of one conversation, as places. */
std::vector<std::vector<std::size_t>> conversations_of(const std::vector<Job>& jobs);

/**
 * The same of recordings of equal length, found in a confined process. Empty where that process
 * dies: the recordings' own workers will report why.
 */
std::vector<std::vector<std::size_t>> conversations_among(const std::vector<std::string>& inputs);

/** For a worker: the part of a page with excerpts that the job requests. */
std::string excerpts_of(const Job& job);

/** listening_part() of the facts, made in a confined process; "" where there is nothing to hear. */
std::string listening_part_of(const FileFacts& facts);

}  // namespace quorvane
