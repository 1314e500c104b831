#include "Common/audio/sample_codec.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "Common/audio/wide_loops.h"

#ifdef __SSE2__
#include <immintrin.h>
#endif

namespace level_engine {

/*
 * The scales are not the same both ways, and not an oversight: the library writes 1.0 as the
 * largest integer (32767) and reads integers as fractions of the next power of two (32768). A pass
 * through 16 bits therefore takes a sample down by one part in 32768. Whoever made both the same
 * would save that much and lose every bit of agreement with files that were written before.
 *
 * A sample beyond full scale is not clipped on its way into an integer file. It is rounded to 32
 * bits, and the low bytes are kept: 16 bits of 1.01 are a loud negative number. Steps whose samples
 * may be that large hold them at full scale first.
 *
 * Integers of the file's width are read in place and copied by memcpy, never through a cast
 * pointer: samples of a file may be at odd addresses.
 */
namespace {

constexpr double kScale8 = 127.0;  // 2^(bits - 1) - 1
constexpr double kScale16 = 32767.0;
constexpr double kScale24 = 8388607.0;
constexpr double kScale32 = 2147483647.0;

/** Integers of one block of samples. */
constexpr std::size_t kPiece = 512;

#ifdef QUORVANE_AVX2
/** What scale_and_round does, for as many as can be taken eight at a time. Returns how many. */
__attribute__((target("avx2"))) std::size_t scale_and_round_eights(const double* samples,
                                                                   double scale,
                                                                   std::int32_t* out,
                                                                   std::size_t count) {
    const __m256d scales = _mm256_set1_pd(scale);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i low = _mm256_cvtpd_epi32(_mm256_mul_pd(_mm256_loadu_pd(samples + i), scales));
        const __m128i high =
            _mm256_cvtpd_epi32(_mm256_mul_pd(_mm256_loadu_pd(samples + i + 4), scales));
        std::memcpy(out + i, &low, sizeof low);
        std::memcpy(out + i + 4, &high, sizeof high);
    }
    return i;
}
#endif

/**
 * Rounded to nearest, halves to even. What does not fit 32 bits becomes -2^31 on x86, as the
 * library's own conversion instruction gives; elsewhere the library truncates what lrint gives.
 */
void scale_and_round(const double* samples, double scale, std::int32_t* out, std::size_t count) {
    std::size_t i = 0;
#ifdef QUORVANE_AVX2
    static const bool has_avx2 = __builtin_cpu_supports("avx2") != 0;
    if (has_avx2) {
        i = scale_and_round_eights(samples, scale, out, count);
    }
#endif
#ifdef __SSE2__
    const __m128d scales = _mm_set1_pd(scale);
    // Two conversions give two integers each, in the low half of their vectors.
    for (; i + 4 <= count; i += 4) {
        const __m128i low = _mm_cvtpd_epi32(_mm_mul_pd(_mm_loadu_pd(samples + i), scales));
        const __m128i high = _mm_cvtpd_epi32(_mm_mul_pd(_mm_loadu_pd(samples + i + 2), scales));
        const __m128i four = _mm_unpacklo_epi64(low, high);
        std::memcpy(out + i, &four, sizeof four);
    }
    for (; i < count; ++i) {
        out[i] = _mm_cvtsd_si32(_mm_set_sd(samples[i] * scale));
    }
#else
    for (; i < count; ++i) {
        out[i] = static_cast<std::int32_t>(std::lrint(samples[i] * scale));
    }
#endif
}

/** The lowest bytes of each integer, in this machine's order. */
template <class Sample>
inline void store_low(const std::int32_t* values, unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Sample sample = static_cast<Sample>(values[i]);
        std::memcpy(bytes + i * sizeof sample, &sample, sizeof sample);
    }
}

template <class Sample>
inline void load_run(const unsigned char* bytes, double scale, double* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Sample sample{};
        std::memcpy(&sample, bytes + i * sizeof sample, sizeof sample);
        samples[i] = static_cast<double>(sample) * scale;
    }
}

/**
 * What the loop waits for is room for its doubles: a block of them lies in the second cache. A
 * kilobyte ahead the lines are called into the first one, to be written to; nothing is read or
 * written there yet, so that the end of the block needs no care.
 */
template <class Sample>
inline void load(const unsigned char* bytes, double scale, double* samples, std::size_t count) {
    constexpr std::size_t kRun = 32;
    constexpr std::size_t kAhead = 128;
    constexpr std::size_t kLine = 8;  // doubles
    std::size_t i = 0;
    for (; i + kRun <= count; i += kRun) {
        for (std::size_t k = 0; k < kRun; k += kLine) {
            __builtin_prefetch(samples + i + kAhead + k, 1);
        }
        load_run<Sample>(bytes + i * sizeof(Sample), scale, samples + i, kRun);
    }
    load_run<Sample>(bytes + i * sizeof(Sample), scale, samples + i, count - i);
}

QUORVANE_WIDE_LOOP void load_8(const unsigned char* bytes, double* samples, std::size_t count) {
    load<std::int8_t>(bytes, 1.0 / 128.0, samples, count);
}

QUORVANE_WIDE_LOOP void load_16(const unsigned char* bytes, double* samples, std::size_t count) {
    load<std::int16_t>(bytes, 1.0 / 32768.0, samples, count);
}

QUORVANE_WIDE_LOOP void load_32(const unsigned char* bytes, double* samples, std::size_t count) {
    load<std::int32_t>(bytes, 1.0 / 2147483648.0, samples, count);
}

QUORVANE_WIDE_LOOP void load_float(const unsigned char* bytes, double* samples, std::size_t count) {
    load<float>(bytes, 1.0, samples, count);
}

QUORVANE_WIDE_LOOP void store_16(const std::int32_t* values,
                                 unsigned char* bytes,
                                 std::size_t count) {
    store_low<std::int16_t>(values, bytes, count);
}

bool is_little_endian() {
    const std::uint16_t one = 1;
    unsigned char first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

/** Three bytes a sample: little-endian in the file or not. */
void store_24(const std::int32_t* values, bool little, unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t value = static_cast<std::uint32_t>(values[i]);
        bytes[3 * i + (little ? 0 : 2)] = static_cast<unsigned char>(value);
        bytes[3 * i + 1] = static_cast<unsigned char>(value >> 8);
        bytes[3 * i + (little ? 2 : 0)] = static_cast<unsigned char>(value >> 16);
    }
}

void load_24(const unsigned char* bytes, bool little, double* samples, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        // Into the upper three bytes of four, so that the sign comes out right without a branch.
        const std::uint32_t value =
            static_cast<std::uint32_t>(bytes[3 * i + (little ? 0 : 2)]) << 8 |
            static_cast<std::uint32_t>(bytes[3 * i + 1]) << 16 |
            static_cast<std::uint32_t>(bytes[3 * i + (little ? 2 : 0)]) << 24;
        samples[i] = static_cast<double>(static_cast<std::int32_t>(value)) / 2147483648.0;
    }
}

template <class Word>
void reverse_each(unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Word word{};
        std::memcpy(&word, bytes + i * sizeof word, sizeof word);
        Word reversed = 0;
        for (std::size_t byte = 0; byte < sizeof word; ++byte) {
            reversed = static_cast<Word>(reversed << 8 | (word >> (8 * byte) & 0xFF));
        }
        std::memcpy(bytes + i * sizeof word, &reversed, sizeof reversed);
    }
}

void swap_bytes(unsigned char* bytes, std::size_t width, std::size_t count) {
    if (width == 2) {
        reverse_each<std::uint16_t>(bytes, count);
    } else if (width == 4) {
        reverse_each<std::uint32_t>(bytes, count);
    } else if (width == 8) {
        reverse_each<std::uint64_t>(bytes, count);
    }
}

}  // namespace

/**
 * Containers in which these encodings stand as they are. In RF64 the library cannot be kept from
 * noting the peaks of floats that it writes, and it sees none in raw bytes.
 */
bool SampleCodec::is_plain_in(int format) {
    const int encoding = format & SF_FORMAT_SUBMASK;
    switch (format & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_RF64:
            return linear_sample_bytes(encoding) != 0 && encoding != SF_FORMAT_FLOAT &&
                   encoding != SF_FORMAT_DOUBLE;
        case SF_FORMAT_WAV:
        case SF_FORMAT_WAVEX:
        case SF_FORMAT_W64:
        case SF_FORMAT_AIFF:
        case SF_FORMAT_AU:
        case SF_FORMAT_CAF:
            return linear_sample_bytes(encoding) != 0;
        default:
            return false;
    }
}

std::size_t linear_sample_bytes(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
            return 1;
        case SF_FORMAT_PCM_16:
            return 2;
        case SF_FORMAT_PCM_24:
            return 3;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 4;
        case SF_FORMAT_DOUBLE:
            return 8;
        default:
            return 0;
    }
}

SampleCodec SampleCodec::of(SNDFILE* file) {
    SF_INFO info{};
    const bool plain =
        file != nullptr && sf_command(file, SFC_GET_CURRENT_SF_INFO, &info, sizeof info) == 0 &&
        is_plain_in(info.format) && sf_command(file, SFC_GET_NORM_DOUBLE, nullptr, 0) == SF_TRUE &&
        sf_command(file, SFC_GET_CLIPPING, nullptr, 0) == SF_FALSE;
    if (!plain) {
        return {};
    }
    const bool swapped = sf_command(file, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE;
    return {info.format & SF_FORMAT_SUBMASK, swapped ? ByteOrder::kSwapped : ByteOrder::kNative};
}

SampleCodec::SampleCodec(int encoding, ByteOrder order)
    : encoding_(encoding),
      swapped_(order == ByteOrder::kSwapped),
      bytes_(linear_sample_bytes(encoding)) {}

void SampleCodec::encode(const double* samples, unsigned char* bytes, std::size_t count) const {
    for (std::size_t i = 0; i < count; i += kPiece) {
        encode_piece(samples + i, bytes + i * bytes_, std::min(kPiece, count - i));
    }
}

void SampleCodec::encode_piece(const double* samples,
                               unsigned char* bytes,
                               std::size_t count) const {
    std::int32_t values[kPiece];
    switch (encoding_) {
        case SF_FORMAT_PCM_S8:
            scale_and_round(samples, kScale8, values, count);
            store_low<std::int8_t>(values, bytes, count);
            return;
        case SF_FORMAT_PCM_U8:
            scale_and_round(samples, kScale8, values, count);
            store_low<std::uint8_t>(values, bytes, count);
            for (std::size_t i = 0; i < count; ++i) {
                bytes[i] ^= 0x80;  // 128 more
            }
            return;
        case SF_FORMAT_PCM_16:
            scale_and_round(samples, kScale16, values, count);
            store_16(values, bytes, count);
            break;
        case SF_FORMAT_PCM_24:
            scale_and_round(samples, kScale24, values, count);
            store_24(values, is_little_endian() != swapped_, bytes, count);
            return;
        case SF_FORMAT_PCM_32:
            scale_and_round(samples, kScale32, values, count);
            store_low<std::int32_t>(values, bytes, count);
            break;
        case SF_FORMAT_FLOAT:
            for (std::size_t i = 0; i < count; ++i) {
                const float sample = static_cast<float>(samples[i]);
                std::memcpy(bytes + i * sizeof sample, &sample, sizeof sample);
            }
            break;
        // Doubles are the file's samples as they are.
        default:
            std::memcpy(bytes, samples, count * sizeof *samples);
            break;
    }
    if (swapped_) {
        swap_bytes(bytes, bytes_, count);
    }
}

void SampleCodec::decode(unsigned char* bytes, double* samples, std::size_t count) const {
    if (swapped_) {
        swap_bytes(bytes, bytes_, count);
    }
    switch (encoding_) {
        case SF_FORMAT_PCM_S8:
            return load_8(bytes, samples, count);
        case SF_FORMAT_PCM_U8:
            for (std::size_t i = 0; i < count; ++i) {
                bytes[i] ^= 0x80;
            }
            return load_8(bytes, samples, count);
        case SF_FORMAT_PCM_16:
            return load_16(bytes, samples, count);
        case SF_FORMAT_PCM_24:
            return load_24(bytes, is_little_endian() != swapped_, samples, count);
        case SF_FORMAT_PCM_32:
            return load_32(bytes, samples, count);
        case SF_FORMAT_FLOAT:
            return load_float(bytes, samples, count);
        default:
            std::memcpy(samples, bytes, count * sizeof *samples);
            return;
    }
}

}  // namespace level_engine
