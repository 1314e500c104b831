#include "Common/files/copy_file.h"

#include <boost/filesystem.hpp>
#include <stdexcept>

#include "Common/files/whole_file.h"
#include "Common/reporting/failure.h"

int copy_file(std::string from, std::string to) {
    try {
        boost::system::error_code ignored;
        if (!boost::filesystem::equivalent(from, to, ignored)) {
            // A file is replaced whole by the renaming; an empty folder has to go before it.
            if (boost::filesystem::symlink_status(to, ignored).type() ==
                boost::filesystem::directory_file) {
                boost::filesystem::remove(to);
            }
            copy_whole(from, to);
        }
    } catch (const std::runtime_error& failure) {
        reporting::say_failure(reporting::Kind::kSystem, failure.what());
        return 1;
    }
    return 0;
}
