#include "Common/version.h"
#include "cli/media/decode.h"
#include "cli/media/media_input.h"
#include "cli/worker/media_carrier.h"
#include "cli/worker/media_module.h"

/* The module's side of media_module.h. */

namespace {

std::unique_ptr<cli::Carrier> make_media_carrier(const cli::Job& job) {
    return std::make_unique<cli::MediaCarrier>(job);
}

}  // namespace

extern "C" const cli::MediaModule* quorvane_media_module();

const cli::MediaModule* quorvane_media_module() {
    static constexpr cli::MediaModule kModule = {kVersion, cli::media::is_media,
                                                 cli::media::can_serve, make_media_carrier,
                                                 cli::media::decode_damaged};
    return &kModule;
}
