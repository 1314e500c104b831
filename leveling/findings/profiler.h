#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "leveling/audio/measure.h"
#include "leveling/findings/half_rate.h"
#include "leveling/findings/sound_profile.h"
#include "leveling/findings/spectrum.h"
#include "leveling/preparation/sections.h"

namespace quorvane {

/**
 * Makes the profile of a recording while something else reads it: of its first two channels, which
 * is all that can be leveled. The memory grows by the profile alone.
 */
class Profiler : public FrameObserver {
  public:
    void begin(int channels, int sample_rate_hz) override;
    void add(const float* samples, std::size_t frames) override;

    const SoundProfile& profile() const { return profile_; }

    SoundProfile& profile() { return profile_; }

  private:
    using Planes = std::array<std::vector<float>, 2>;

    void finish_tenth();
    void look_at_samples(Tenth& tenth);
    void look_at_piece(std::size_t channel, std::size_t from, std::size_t to, double& power);
    void look_at_speech(Tenth& tenth);
    void look_at_tones(Tenth& tenth);
    std::size_t take_tones(std::size_t from, std::vector<float>& lines);
    void look_at_lows();
    void follow_breaks(
        std::size_t channel, std::size_t from, std::size_t to, float peak, float step);

    double time_of(std::size_t frame) const;

    std::size_t file_channels_ = 1;
    std::size_t channels_ = 1;
    std::size_t tenth_frames_ = 1;
    SoundProfile profile_;
    Planes plane_;            // the tenth under way, behind one sample of the last one
    std::size_t filled_ = 0;  // frames in it

    // Between 8 and 16 kHz, then between 1 and 2.
    int middle_rate_hz_ = 0;
    int low_rate_hz_ = 0;
    std::array<std::vector<HalfRate>, 2> to_middle_;
    std::array<std::vector<HalfRate>, 2> to_low_;
    std::vector<float> one_, other_;
    Planes middle_, low_;
    std::size_t new_middle_ = 0;
    std::size_t low_windows_ = 0;
    std::optional<PairFilter> voice_from_;

    static constexpr std::size_t kWindow = 512;
    Spectrum middle_spectrum_{kWindow};
    Spectrum low_spectrum_{kWindow};
    std::vector<float> logs_, lines_, last_lines_;
    bool has_last_lines_ = false;
    float loudest_db_ = 0;  // of late, falling slowly

    struct Follower {
        float peak_before = 0;       // of the piece before the zeros
        float steps[3] = {0, 0, 0};  // largest steps of the last pieces
        double zeros_from_s = -1;    // below 0: no zeros
    };

    std::array<Follower, 2> followers_;
};

}  // namespace quorvane
