#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "library/run/pushed_frames.h"
#include "library/run/results.h"
#include "library/run/settings.h"
#include "library/run/work.h"

namespace quorvane {

/**
 * A leveler behind the C functions: what its caller has set, the frames on their way, and what the
 * last call found. Arguments were checked before. All but cancel() and clear_cancel() throw
 * CallError, CancelledCall or std::bad_alloc.
 */
class Leveler {
  public:
    void configure(Settings settings) { settings_ = std::move(settings); }

    const Settings& settings() const { return settings_; }

    void level(const quorvane_audio& audio, const quorvane_buffer& result);
    void limit(const quorvane_audio& audio, const quorvane_buffer& result);
    void measure(const quorvane_audio& audio);
    void level_file(const std::string& input, const std::string& output);
    void measure_file(const std::string& input);

    void level_together(const std::vector<quorvane_audio>& tracks,
                        const std::vector<quorvane_buffer>& results);
    void level_files_together(const std::vector<std::string>& inputs,
                              const std::vector<std::string>& outputs,
                              const std::string& mix);

    void begin(const SampleForm& form);
    void write(const quorvane_audio& audio);
    void finish();
    std::uint64_t read(const quorvane_buffer& to, std::uint64_t frames);

    /** Of the frames on their way; 1 where there are none. */
    int pushed_channels() const { return pushed_ ? pushed_->form().channels : 1; }

    void cancel() { cancelled_ = 1; }

    void clear_cancel() { cancelled_ = 0; }

    /** Of the track that is selected. */
    const Results& results() const { return results_[selected_]; }

    std::size_t tracks() const { return results_.size(); }

    void select(std::size_t track) { selected_ = track; }

  private:
    CallContext context() const { return {settings_, cancelled_}; }

    /** Adds the frames, works on them, and copies the result to the caller's memory. */
    void process(const quorvane_audio& audio,
                 const quorvane_buffer& result,
                 Results (PushedFrames::*work)(const CallContext&));

    /** Selects the first track's. */
    void keep(std::vector<Results> results);

    /** Keeps what work finds; nothing where it throws. */
    void call(const std::function<std::vector<Results>(const CallContext&)>& work);

    Settings settings_;
    std::atomic<int> cancelled_{0};
    std::vector<Results> results_{1};  // of each track of the last call; never empty
    std::size_t selected_ = 0;
    std::unique_ptr<PushedFrames> pushed_;
};

}  // namespace quorvane
