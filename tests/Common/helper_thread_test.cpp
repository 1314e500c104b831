#include "Common/stream/helper_thread.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Common/audio/sound_handle.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "tests/support/fixtures.h"

namespace {

using stream::HelperThread;

/** Either way of working, back to the usual one at the end. */
class Helped {
  public:
    explicit Helped(bool helped) { HelperThread::use(helped); }

    ~Helped() { HelperThread::use(std::thread::hardware_concurrency() > 1); }

    Helped(const Helped&) = delete;
    Helped& operator=(const Helped&) = delete;
};

TEST(HelperThread, DoesTasksInOrderAndHandsOverWhatTheyThrow) {
    for (const bool helped : {true, false}) {
        const Helped way(helped);
        SCOPED_TRACE(helped);
        std::vector<int> done;
        HelperThread::Task first;
        HelperThread::Task second;
        HelperThread::Task unlucky;
        first.start([&] { done.push_back(1); });
        second.start([&] { done.push_back(2); });
        unlucky.start([] { throw std::runtime_error("no more"); });
        EXPECT_THROW(unlucky.wait(), std::runtime_error);
        EXPECT_NO_THROW(unlucky.wait());
        second.wait();
        EXPECT_EQ((std::vector<int>{1, 2}), done);
    }
}

/** Frame i holds i; reading fails where it is told to. */
class Ramp : public stream::Source {
  public:
    explicit Ramp(long long fails_at) : fails_at_(fails_at) {
        info_.frames = 200000;
        info_.channels = 1;
        info_.samplerate = 44100;
    }

    const std::string& name() const override { return name_; }

    const SF_INFO& info() const override { return info_; }

    long long read(double* samples, long long frames) override {
        frames = std::min(frames, info_.frames - position_);
        for (long long i = 0; i < frames; ++i) {
            if (position_ == fails_at_) {
                throw std::runtime_error("unreadable");
            }
            samples[i] = static_cast<double>(position_++) / 200000.0;
        }
        return frames;
    }

    bool seek(long long frame) override {
        position_ = frame;
        return true;
    }

    long long position() const override { return position_; }

    bool zeroes_past_end() override { return false; }

  private:
    std::string name_ = "ramp";
    SF_INFO info_{};
    long long fails_at_;
    long long position_ = 0;
};

class Collected : public stream::Receiver {
  public:
    void take(double* samples, long long frames) override {
        taken.insert(taken.end(), samples, samples + frames);
        std::fill_n(samples, frames, -1.0);  // a block is the taker's: it must not come back
    }

    std::vector<double> taken;
};

TEST(HelperThread, ReadingAheadBringsTheSameFramesAndTheSameFailure) {
    for (const bool helped : {true, false}) {
        const Helped way(helped);
        SCOPED_TRACE(helped);
        Ramp part(-1);
        Collected some;
        stream::pump(part, some, 100001);
        EXPECT_EQ(100001, part.position());  // and not a block beyond
        ASSERT_EQ(100001U, some.taken.size());
        for (std::size_t i = 0; i < some.taken.size(); i += 997) {
            EXPECT_EQ(static_cast<double>(i) / 200000.0, some.taken[i]);
        }
        Ramp broken(150000);
        Collected before;
        EXPECT_THROW(stream::pump(broken, before, stream::kToTheEnd), std::runtime_error);
        EXPECT_LT(100000U, before.taken.size());
        EXPECT_GE(150000U, before.taken.size());
    }
}

/** No file of this process may grow beyond so many bytes. */
class SmallFiles {
  public:
    explicit SmallFiles(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~SmallFiles() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }

    SmallFiles(const SmallFiles&) = delete;
    SmallFiles& operator=(const SmallFiles&) = delete;

  private:
    rlimit before_{};
    void (*signal_)(int);
};

TEST(HelperThread, WritingBehindTellsOfADiskThatIsFull) {
    const Helped way(true);
    SF_INFO info{};
    info.format = SF_FORMAT_AU | SF_FORMAT_PCM_16;
    info.channels = 1;
    info.samplerate = 44100;
    const TempDir folder;
    const std::string path = folder / "half.au";
    long long missing = 0;
    {
        SoundHandle handle = open_sound_for_writing(path, info);
        ASSERT_TRUE(handle);
        SoundWriter writer(handle, path, 1, 1000, [&](const WriteFailure& failure) {
            missing = failure.expected - failure.written;
            throw std::runtime_error("full");
        });
        std::vector<double> samples(60000, 0.25);
        const SmallFiles limit(100000);
        const auto write = [&] {
            for (int i = 0; i < 4; ++i) {
                writer.take(samples.data(), static_cast<long long>(samples.size()));
            }
            writer.end();
        };
        EXPECT_THROW(write(), std::runtime_error);
    }
    EXPECT_LT(0, missing);
}

}  // namespace
