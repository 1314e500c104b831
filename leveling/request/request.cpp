#include "leveling/request/request.h"

#include <algorithm>
#include <thread>

namespace quorvane {

unsigned usual_jobs() {
    return std::clamp(std::thread::hardware_concurrency(), 1u, kMostJobs);
}

}  // namespace quorvane
