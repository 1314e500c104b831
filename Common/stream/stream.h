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

/** Takes a recording's frames in order. */
class Receiver {
  public:
    virtual ~Receiver() = default;

    /** The next frames. The samples are the taker's to change; they are gone after the call. */
    virtual void process(double* samples, long long frames) = 0;

    /** No frame will follow. */
    virtual void finish() {}
};

/** A link that hands on what it makes of the frames. */
class Stage : public Receiver {
  public:
    explicit Stage(Receiver& next) : next_(next) {}

    void finish() override { next_.finish(); }

  protected:
    Receiver& next() { return next_; }

  private:
    Receiver& next_;
};

/** Lets a meter ride along: aside sees every block first and must leave the samples alone. */
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

    /** What messages call it: a file's path. */
    virtual const std::string& name() const = 0;

    /** Frames, sample rate, channels and encoding. */
    virtual const SF_INFO& info() const = 0;

    /** Up to the asked number of frames, 0 at the end. Throws when they cannot be had. */
    virtual long long read(double* samples, long long frames) = 0;

    /** Says that so many frames, or as many as there are, are going to be read from here on. */
    virtual void announce(long long /*frames*/) {}

    /** Goes to a frame, counted from 0; false when that is not possible. */
    virtual bool seek(long long frame) = 0;

    /** The frame that is read next. */
    virtual long long position() const = 0;

    /**
     * Whether a read that comes up short at the end fills the rest of the buffer with zeros, or
     * leaves there what it held. Asked for at the end, since it may move the position.
     */
    virtual bool zeroes_past_end() = 0;
};

}  // namespace stream
