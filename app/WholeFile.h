#ifndef QUORVANE_APP_WHOLE_FILE_H
#define QUORVANE_APP_WHOLE_FILE_H

#include <atomic>
#include <string>

// Makes a finished file ready to be renamed to destination in one step, and returns the path to
// rename: source itself, written out to its disk, where both are on one volume; else a complete,
// written-out copy under a hidden name beside the destination, which the caller renames or removes.
//
// Throws std::system_error, naming the file and the cause, and leaves no copy behind; so it does,
// with ECANCELED, when stop turns true.
std::string stageBeside(const std::string& source,
                        const std::string& destination,
                        const std::atomic<bool>& stop);

#endif
