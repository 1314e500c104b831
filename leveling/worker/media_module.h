#pragma once

#include <memory>
#include <string>
#include <vector>

#include "leveling/audio/recode.h"
#include "leveling/audio/stretches.h"
#include "leveling/worker/audio_backend.h"
#include "leveling/worker/job.h"

/*
 * What reads videos and phone memos, leveling/media and its backend, brings FFmpeg's libraries and
 * all that these link, which would cost every worker ten times what its start costs without. So it
 * is a module, a shared object that the programs load when they meet a file that libsndfile does
 * not read. It is looked for at one fixed place relative to the program's file, never in the
 * current folder or one that the environment names. Module and program are one build: they share
 * C++ types, and the module tells the version that it belongs to.
 */

namespace quorvane {

/** What the module offers: the result of the one function that is looked up in it. */
struct MediaModule {
    const char* version;  // kVersion of its build; first, so that it can be read in any other's
    bool (*is_media)(const std::string& path);  // see leveling/media/media_input.h
    bool (*can_serve)(const std::string& path);
    std::unique_ptr<AudioBackend> (*make_backend)(const Job& job);
    Decoded (*decode_damaged)(const std::string& path,
                              const std::string& to);  // leveling/media/decode.h
    Samples (*read_stretches)(const std::string& path,
                              int stream,
                              const std::vector<Stretch>& all);  // leveling/media/read_stretches.h
    void (*encode_as_aac)(const std::string& from,
                          const std::string& to);  // leveling/media/encode.h
};

constexpr const char* kMediaModuleEntry = "quorvane_media_module";

/** Where the module lies; empty where the system does not say where this program does. */
std::string media_module_path();

/**
 * Loads the module, once in a process; may be called from several threads. Throws FileError with
 * the module's path and the cause where it cannot be loaded or belongs to another version.
 */
const MediaModule& media_module();

}  // namespace quorvane
