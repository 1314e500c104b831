#pragma once

namespace quorvane {

/** Exit statuses of the program. */
constexpr int kAllDone = 0;
constexpr int kSomeFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kNotReady = 4;      // a file is not what --for names
constexpr int kSignalBase = 128;  // plus the signal's number: 130 after Ctrl-C

/** The command line for files, folders and batches. Returns the exit status. */
int batch_main(int argc, const char* const* argv);

}  // namespace quorvane
