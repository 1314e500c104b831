#include "leveling/storage/open_files.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <stdexcept>

namespace quorvane {

void require_open_files(std::size_t needed) {
    struct rlimit limit {};

    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= needed) {
        return;
    }
    limit.rlim_cur = std::min<rlim_t>(needed, limit.rlim_max);
    if (limit.rlim_cur >= needed && setrlimit(RLIMIT_NOFILE, &limit) == 0) {
        return;
    }
    throw std::runtime_error(
        fmt::format("only {} files may be open at a time, but {} are needed; raise the limit, as "
                    "with ulimit -n {}",
                    limit.rlim_cur, needed, std::max<std::size_t>(needed, 1024)));
}

}  // namespace quorvane
