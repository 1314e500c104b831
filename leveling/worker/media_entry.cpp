#include "Common/version.h"
#include "leveling/media/decode.h"
#include "leveling/media/media_input.h"
#include "leveling/worker/media_carrier.h"
#include "leveling/worker/media_module.h"

/* The module's side of media_module.h. */

namespace {

std::unique_ptr<quorvane::Carrier> make_media_carrier(const quorvane::Job& job) {
    return std::make_unique<quorvane::MediaCarrier>(job);
}

}  // namespace

extern "C" const quorvane::MediaModule* quorvane_media_module();

const quorvane::MediaModule* quorvane_media_module() {
    static constexpr quorvane::MediaModule kModule = {
        kVersion, quorvane::media::is_media, quorvane::media::can_serve, make_media_carrier,
        quorvane::media::decode_damaged};
    return &kModule;
}
