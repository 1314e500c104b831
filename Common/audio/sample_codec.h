#pragma once

#include <sndfile.h>

#include <cstddef>

namespace level_engine {

/**
 * Bytes of one sample in a format (SF_FORMAT_... of container and encoding) of linear PCM or IEEE
 * floats; 0 for an encoding that compresses, such as u-law or Vorbis. FLAC counts by its bits.
 */
std::size_t linear_sample_bytes(int format);

/**
 * Converts samples to and from plain PCM or IEEE floats exactly as libsndfile does: the same
 * rounding, the same scales (32767 to write 16 bits, 32768 to read them), the same wrap beyond full
 * scale. libsndfile then moves only bytes, in blocks of any size (sf_read_raw, sf_write_raw),
 * instead of converting 8 KB at a time; and a sample that is encoded and decoded at once is what
 * the next reader of the file would get.
 */
class SampleCodec {
  public:
    /**
     * For an open file. Its is_plain() is false when the bytes are not such samples, one after
     * another: a container or an encoding that compresses, packs or transforms them, or a library
     * that was set to scale or clip in another way.
     */
    static SampleCodec of(SNDFILE* file);

    /** Whether a format, container and encoding, holds such samples. */
    static bool is_plain_in(int format);

    SampleCodec() = default;

    /** Of a file's samples: this machine's, or the other one. */
    enum class ByteOrder { kNative, kSwapped };

    /** encoding: SF_FORMAT_PCM_16 and the like. */
    SampleCodec(int encoding, ByteOrder order);

    bool is_plain() const { return bytes_ != 0; }

    /** Bytes of one sample in the file. */
    std::size_t bytes() const { return bytes_; }

    /** count samples, -1.0 to 1.0, to count times bytes(). */
    void encode(const double* samples, unsigned char* bytes, std::size_t count) const;

    /** The reverse. The bytes are scratch afterwards. */
    void decode(unsigned char* bytes, double* samples, std::size_t count) const;

  private:
    void encode_piece(const double* samples, unsigned char* bytes, std::size_t count) const;

    int encoding_ = 0;
    bool swapped_ = false;
    std::size_t bytes_ = 0;
};

}  // namespace level_engine

using level_engine::linear_sample_bytes;
using level_engine::SampleCodec;
