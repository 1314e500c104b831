#pragma once

namespace quorvane {

/** The word that makes it this command when it comes first. */
constexpr const char* kMergeWord = "merge";

/**
 * quorvane merge RESULTS.jsonl... [--report PATH] [--json FILE]: one table, one summary, one report
 * and one JSON file from the JSON of many runs, as a single run over all their files would have
 * written them. argv[1] is kMergeWord. Returns the exit status that the single run would have
 * had; a planned file that no run reported is not finished, which is status 1.
 */
int merge_main(int argc, const char* const* argv);

}  // namespace quorvane
