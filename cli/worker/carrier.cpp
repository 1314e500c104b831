#include "cli/worker/carrier.h"

#include "cli/worker/media_carrier.h"
#include "cli/worker/sound_file_carrier.h"

namespace cli {

std::unique_ptr<Carrier> make_carrier(const Job& job) {
    // What libsndfile reads stays with it.
    if (MediaCarrier::takes(job.input)) {
        return std::make_unique<MediaCarrier>(job);
    }
    return std::make_unique<SoundFileCarrier>(job);
}

}  // namespace cli
