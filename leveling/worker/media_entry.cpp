#include "Common/version.h"
#include "leveling/media/decode.h"
#include "leveling/media/encode.h"
#include "leveling/media/media_input.h"
#include "leveling/media/read_stretches.h"
#include "leveling/worker/media_backend.h"
#include "leveling/worker/media_module.h"

/* The module's side of media_module.h. */

namespace {

std::unique_ptr<quorvane::AudioBackend> make_media_backend(const quorvane::Job& job) {
    return std::make_unique<quorvane::MediaBackend>(job);
}

}  // namespace

extern "C" const quorvane::MediaModule* quorvane_media_module();

const quorvane::MediaModule* quorvane_media_module() {
    static constexpr quorvane::MediaModule kModule = {kVersion,
                                                      quorvane::media::is_media,
                                                      quorvane::media::can_serve,
                                                      make_media_backend,
                                                      quorvane::media::decode_damaged,
                                                      quorvane::media::read_stretches,
                                                      quorvane::media::encode_as_aac};
    return &kModule;
}
