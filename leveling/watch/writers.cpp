#include "leveling/watch/writers.h"

#include <fcntl.h>

#include <cerrno>

#include "Common/files/descriptor.h"

namespace quorvane {

Writer writer_of(const std::string& path) {
#ifdef __linux__
    const Descriptor file(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (!file.is_open()) {
        return Writer::Unknown;
    }
    if (fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0) {
        fcntl(file.get(), F_SETLEASE, F_UNLCK);
        return Writer::None;
    }
    return errno == EAGAIN ? Writer::Some : Writer::Unknown;
#else
    static_cast<void>(path);
    return Writer::Unknown;
#endif
}

}  // namespace quorvane
