#pragma once

#include <sndfile.h>

#include <string>

/*
 * The one way of audio through the engine. A Source gives a recording's frames in order, a loop
 * (pump.h) reads them in large blocks and hands them to a chain of Receivers: filters, gates and
 * gain ramps are Stages with a next link; meters, series and file writers end a chain. A link sees
 * blocks of any length, the ends of blocks mean nothing to it, so the same frames give the same
 * bits however they are cut. No link knows a file: each can be tried on an array.
 *
 * Samples are interleaved by channel, full scale is -1.0 to 1.0. Only calls per block are virtual.
 */
namespace stream {

/** Gets a recording's frames in order. */
class Receiver {
  public:
    virtual ~Receiver() = default;

    /** Gets the next frames. May change the samples, which are valid only during the call. */
    virtual void process(double* samples, long long frames) = 0;

    /** Called once after the last frame. */
    virtual void finish() {}
};

/** A link that passes changed frames on to the next one. */
class Stage : public Receiver {
  public:
    explicit Stage(Receiver& next) : next_(next) {}

    void finish() override { next_.finish(); }

  protected:
    Receiver& next() { return next_; }

  private:
    Receiver& next_;
};

/** Passes every block to a meter (aside), which must not change it, and then to the next link. */
class Tee : public Stage {
  public:
    Tee(Receiver& aside, Receiver& next) : Stage(next), aside_(aside) {}

    void process(double* samples, long long frames) override {
        aside_.process(samples, frames);
        next().process(samples, frames);
    }

    void finish() override {
        aside_.finish();
        Stage::finish();
    }

  private:
    Receiver& aside_;
};

/** Where a recording comes from: a sound file, an array, a store. */
class Source {
  public:
    virtual ~Source() = default;

    /** The name for messages: a file's path. */
    virtual const std::string& name() const = 0;

    /** Frames, sample rate, channels and encoding. */
    virtual const SF_INFO& info() const = 0;

    /** Reads up to that many frames, 0 at the end. Throws when they cannot be read. */
    virtual long long read(double* samples, long long frames) = 0;

    /** Announces a read of that many frames, or up to the end, from the position on. */
    virtual void announce(long long /*frames*/) {}

    /** Goes to a frame, counted from 0; false when that is not possible. */
    virtual bool seek(long long frame) = 0;

    /** The frame that is read next. */
    virtual long long position() const = 0;

    /**
     * Whether a short read at the end fills the rest of the buffer with zeros or leaves it
     * unchanged. Call it only at the end, since it may move the position.
     */
    virtual bool zeroes_past_end() = 0;
};

}  // namespace stream
