#pragma once

#include <memory>
#include <string>

#include "leveling/archive/record.h"

namespace quorvane {

/** Recognises the outputs of earlier runs by the records of their folders. */
class KnownOutputs {
  public:
    enum class Known {
        No,      // no record names it
        Edited,  // a record names it, but its content is not the recorded one
        Output   // it is as it was recorded
    };

    /**
     * A file is read only where its size is a recorded one and its time is not. Keeps the records
     * of the last folder in memory: ask in the order of the folders.
     */
    Known look_up(const std::string& path);

  private:
    std::string book_path_;
    std::unique_ptr<RecordBook> book_;
};

}  // namespace quorvane
