#pragma once

/**
 * The engine's own command line, with --keep-intermediates DIR besides: levels one file with its
 * progress shown in place on a terminal and says in one last line what came of it. Ends early, with
 * result 3 and nothing left behind, on SIGINT, SIGTERM or SIGHUP.
 *
 * Returns levelMain's result, or 1 when the result could not be put at the output path.
 */
int run_engine_command(int argc, char** argv);
