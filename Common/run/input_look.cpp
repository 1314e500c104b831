#include "Common/run/input_look.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "Common/audio/finite.h"
#include "Common/normalize/normalize.h"
#include "Common/reporting/failure.h"
#include "Common/units.h"

namespace level_engine {

void note_frames_missing(SoundFile& file, const SF_INFO& info) {
    reporting::Defect defect;
    defect.is_systems = sf_error(file.handle().get()) == SF_ERR_SYSTEM;
    if (sf_error(file.handle().get()) != SF_ERR_NO_ERROR) {
        defect.library_text = SoundFile::GetSndFileStrError(file.handle().get());
    }
    defect.kind = reporting::DefectKind::kFramesMissing;
    defect.promised = info.frames;
    defect.read = file.Tell();
    if (defect.read < info.frames && (promises_length(info) || !defect.library_text.empty())) {
        defect.text = file.path() + ": ends after " + std::to_string(defect.read) + " of " +
                      std::to_string(info.frames) + " frames; the file may be damaged" +
                      (defect.library_text.empty() ? "" : ": " + defect.library_text);
        reporting::note_defect(defect);
    }
}

void note_odd_samples(SoundFile& file, const SF_INFO& info, long long frames) {
    std::vector<double> block(static_cast<std::size_t>(kLookFrames * info.channels));
    FiniteGuard guard(file.path(), info);
    sf_seek(file.handle().get(), 0, SEEK_SET);
    for (long long left = frames; left > 0;) {
        const long long read = file.ReadDoubleFrames(block.data(), std::min(left, kLookFrames));
        if (read <= 0) {
            note_frames_missing(file, info);
            break;
        }
        guard.note(block.data(), read * info.channels);
        left -= read;
    }
}

bool begins_with_zero(SoundFile& file, const SF_INFO& info) {
    std::vector<double> frame(static_cast<std::size_t>(info.channels));
    sf_seek(file.handle().get(), 0, SEEK_SET);
    file.ReadDoubleFrames(frame.data(), 1);
    return std::all_of(frame.begin(), frame.end(), [](double sample) { return sample == 0.0; });
}

void require_writable_format(const std::string& path, SF_INFO info, int bit_depth) {
    if (bit_depth != 0) {
        info.format = normalize::output_format(info.format, bit_depth);
    }
    if (info.channels <= kMostChannels && sf_format_check(&info) == SF_FALSE) {
        throw std::runtime_error(path + ": cannot write the format " + format_name(info.format));
    }
}

}  // namespace level_engine
