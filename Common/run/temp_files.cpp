#include "Common/run/temp_files.h"

#include <boost/filesystem.hpp>

void TempFileList::markForDeletion(const std::string& path) {
    for (Entry& entry : entries_) {
        entry.delete_now = entry.delete_now || entry.path == path;
    }
}

void TempFileList::deleteMarked() {
    for (const Entry& entry : entries_) {
        if (entry.delete_now) {
            boost::system::error_code ignored;
            boost::filesystem::remove(entry.path, ignored);
        }
    }
}
