#include "cli/worker/carrier.h"

#include "cli/worker/sound_file_carrier.h"

namespace cli {

std::unique_ptr<Carrier> make_carrier(const Job& job) {
    return std::make_unique<SoundFileCarrier>(job);
}

}  // namespace cli
