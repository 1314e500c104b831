#pragma once

/**
 * The engine's own command line, with --keep-intermediates DIR besides: levels one file with its
 * progress shown in place on a terminal, and says in one last line what came of it and why.
 *
 * The leveled file is looked at once more, staged as a hidden file in the output's folder, synced
 * and renamed, so that the output path holds the old file or the whole new one. Intermediate files
 * stand in a private, locked folder that goes with the run; what a killed run left is removed by
 * the next. Ends early, with result 3 and nothing left behind, on SIGINT, SIGTERM or SIGHUP.
 *
 * Returns levelMain's result, or 1 when the output was not delivered.
 */
int run_engine_command(int argc, char** argv);
