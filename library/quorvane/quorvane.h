#ifndef QUORVANE_QUORVANE_H
#define QUORVANE_QUORVANE_H

/**
 * @file
 * @brief Leveling, measuring and limiting spoken word inside another program.
 *
 * A leveler is a handle: make one with quorvane_new(), set its options with quorvane_configure(),
 * call it as often as you like, and read what it found with the functions under "Results".
 *
 *     quorvane_leveler* leveler = quorvane_new();
 *     quorvane_audio audio = {sizeof audio, QUORVANE_FLOAT32, 48000, 1, frames, samples};
 *     quorvane_buffer result = {sizeof result, samples};
 *     if (quorvane_level(leveler, &audio, &result) != QUORVANE_OK)
 *         puts(quorvane_last_error(leveler));
 *     quorvane_free(leveler);
 *
 * Functions that can fail return a ::quorvane_code. Afterwards quorvane_last_error() has a sentence
 * that says what is wrong with what the caller gave.
 *
 * Any number of threads can each use a leveler of their own at the same time. One leveler is for
 * one thread at a time, except for quorvane_cancel() and quorvane_clear_cancel(), and can be freed
 * on any thread. The library writes nothing to the standard streams, sets no signal handler and no
 * locale, ends no process, and lets no exception pass. The same samples and options give the same
 * bits on every thread, in every locale and floating-point mode, and in the program `quorvane`.
 *
 * Structs begin with their size, so that a program that was compiled with an older header runs with
 * a newer library. Fields that are zero have their default.
 */

#include <stddef.h>
#include <stdint.h>

/** Marks what the library exports. */
#if defined(__GNUC__)
#define QUORVANE_API __attribute__((visibility("default")))
#else
#define QUORVANE_API
#endif

/* NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers): C reads this, too. */

#ifdef __cplusplus
extern "C" {
#endif

/** The version of this header; quorvane_version() is that of the library. */
#define QUORVANE_VERSION_MAJOR 4
#define QUORVANE_VERSION_MINOR 0 /**< the second number */
#define QUORVANE_VERSION_PATCH 0 /**< the third */

/** What a call returns. Values stay what they are; later versions may add some. */
typedef enum quorvane_code {
    QUORVANE_OK = 0,
    QUORVANE_BAD_ARGUMENT = 1, /**< a null pointer, a wrong size, a number out of range */
    QUORVANE_BAD_OPTION = 2,   /**< an unknown target or tuning option */
    QUORVANE_BAD_AUDIO = 3,    /**< no frame, a sample that is not a number, a damaged file */
    QUORVANE_UNSUPPORTED = 4,  /**< a format or a number of channels that cannot be leveled */
    QUORVANE_CANCELLED = 5,    /**< by quorvane_cancel() or by the progress callback */
    QUORVANE_NO_MEMORY = 6,    /**< not enough memory */
    QUORVANE_IO_ERROR = 7,     /**< a file or the temporary folder cannot be read or written */
    QUORVANE_WRONG_STATE = 8,  /**< out of order, or from a callback of a call under way */
    QUORVANE_EXISTS = 9,       /**< the output file exists and is not to be replaced */
    QUORVANE_FAILED = 10,      /**< the audio could not be leveled; the sentence says why */
    QUORVANE_INTERNAL = 11     /**< a fault of the library */
} quorvane_code;

/** How a sample is stored, in the byte order of the machine. */
typedef enum quorvane_sample_type {
    QUORVANE_FLOAT32 = 1, /**< full scale is 1.0 */
    QUORVANE_FLOAT64 = 2, /**< full scale is 1.0 */
    QUORVANE_INT16 = 3,   /**< full scale is 32768; results are dithered as in 16-bit files */
    QUORVANE_INT32 = 4    /**< full scale is 2147483648 */
} quorvane_sample_type;

/** Messages for quorvane_options::log. */
typedef enum quorvane_log_level {
    QUORVANE_LOG_DETAIL = 1, /**< what the engine's steps report */
    QUORVANE_LOG_WARNING = 2 /**< what the user should know of a recording */
} quorvane_log_level;

/** What is measured, for quorvane_options::measure. */
typedef enum quorvane_measuring {
    QUORVANE_MEASURE_DEFAULT = 0,  /**< loudness and findings; nothing when leveling plainly */
    QUORVANE_MEASURE_NOTHING = 1,  /**< leveling only */
    QUORVANE_MEASURE_LOUDNESS = 2, /**< of quorvane_measure(): loudness and peaks, no findings */
    QUORVANE_MEASURE_ALL = 3       /**< loudness, peaks, findings and speech */
} quorvane_measuring;

/** What the last call of a leveler did. */
typedef enum quorvane_outcome {
    QUORVANE_NOTHING_DONE = 0, /**< no call yet, or the last one failed */
    QUORVANE_LEVELED = 1,
    QUORVANE_UNCHANGED = 2, /**< handed back as it was; quorvane_reason() says why */
    QUORVANE_MEASURED = 3,
    QUORVANE_LIMITED = 4
} quorvane_outcome;

/** For results that exist twice. */
typedef enum quorvane_moment {
    QUORVANE_BEFORE = 0, /**< of the input */
    QUORVANE_AFTER = 1   /**< of the result */
} quorvane_moment;

/** A handle; its content is private. */
typedef struct quorvane_leveler quorvane_leveler;

/** Called with the fraction done, 0 to 1, on the thread of the call. Not 0: cancels the call. */
typedef int (*quorvane_progress)(void* context, double fraction);

/** Called with one line of text without a line end, on the thread of the call. */
typedef void (*quorvane_log)(void* context, int level, const char* text);

/**
 * The options of a leveler. They mean what the options of `quorvane` with the same names mean, and
 * can be combined. Set all to their defaults with quorvane_options_init().
 */
typedef struct quorvane_options {
    size_t size;        /**< sizeof(quorvane_options) */
    const char* target; /**< word of --for: "podcast", ..., "lufs=-18:tp=-1.5"; null: none */
    double target_lufs; /**< with target_dbtp, in place of target: -40 to -5; 0: none */
    double target_dbtp; /**< highest true peak, -20 to 0 dBTP; only read with target_lufs */
    int plain;          /**< not 0: the engine alone, as --plain */
    int measure;        /**< a ::quorvane_measuring */
    int second_thread;  /**< not 0: reads ahead and measures on a second thread; same bits */
    int replace;        /**< not 0: output files that exist are replaced, as --force */
    int strict;         /**< not 0: a damaged input file fails, as --strict */
    int salvage;        /**< not 0: a damaged file is leveled whatever is lost, as --salvage */
    const char* const* tuning; /**< options of the engine, "--segment-tolerance=3"; null: none */
    size_t tuning_count;       /**< of tuning */
    /** Bytes of audio up to which a call keeps temporary data in memory. 0: 256 MiB. */
    uint64_t memory_bytes;
    /** Folder for the temporary data of longer audio. Null: TMPDIR or the system's. */
    const char* scratch_folder;
    quorvane_progress progress; /**< null: none */
    quorvane_log log;           /**< null: none */
    void* context;              /**< for both callbacks */
} quorvane_options;

/**
 * Audio that a call reads. A frame has one sample of each channel. Interleaved: set samples.
 * Planar: set planes to an array of one pointer for each channel, and samples to null.
 */
typedef struct quorvane_audio {
    size_t size;               /**< sizeof(quorvane_audio) */
    int type;                  /**< a ::quorvane_sample_type */
    int sample_rate_hz;        /**< 1 or more */
    int channels;              /**< 1 to 64 */
    uint64_t frames;           /**< of all channels: frames * channels samples */
    const void* samples;       /**< the first sample; null: planes */
    const void* const* planes; /**< a pointer to each channel's samples; null: samples */
    ptrdiff_t frame_stride;   /**< bytes from a frame to the next; with channel_stride 0: no gaps */
    ptrdiff_t channel_stride; /**< bytes from a channel to the next; not read with planes */
} quorvane_audio;

/** Where a call writes audio in the form of its input, whose own memory it may be. */
typedef struct quorvane_buffer {
    size_t size;              /**< sizeof(quorvane_buffer) */
    void* samples;            /**< as in quorvane_audio */
    void* const* planes;      /**< as in quorvane_audio */
    ptrdiff_t frame_stride;   /**< as in quorvane_audio */
    ptrdiff_t channel_stride; /**< as in quorvane_audio */
} quorvane_buffer;

/** Levels of a recording. Those of silence are minus infinity, unknown ones are NaN. */
typedef struct quorvane_loudness {
    size_t size;               /**< sizeof(quorvane_loudness) */
    double integrated_lufs;    /**< ITU-R BS.1770-4 */
    double short_term_lufs;    /**< the greatest of 3 s */
    double momentary_lufs;     /**< the greatest of 400 ms */
    double range_lu;           /**< EBU Tech 3342 */
    double true_peak_dbtp;     /**< ITU-R BS.1770-4, annex 2 */
    double sample_peak_dbfs;   /**< greatest absolute sample */
    double rms_dbfs;           /**< over all samples of all channels */
    double speech_lufs;        /**< of the passages of speech; NaN without findings or speech */
    double speech_passages_db; /**< from the quietest passage of speech to the loudest, dB */
} quorvane_loudness;

/** How grave a finding is. */
typedef enum quorvane_severity {
    QUORVANE_PROBLEM = 0, /**< listeners will notice it, and leveling cannot repair it */
    QUORVANE_WARNING = 1, /**< worth a look before the recording is published */
    QUORVANE_NOTE = 2
} quorvane_severity;

/** What a recording suffers from. Texts belong to the leveler. */
typedef struct quorvane_finding {
    size_t size;          /**< sizeof(quorvane_finding) */
    const char* code;     /**< "clipped"; `quorvane --explain` lists the codes */
    int severity;         /**< a ::quorvane_severity */
    double value;         /**< in unit */
    const char* unit;     /**< "dB", "%", "s", ... */
    const char* detail;   /**< "left", "50 Hz", or "" */
    const char* sentence; /**< "The right side is silent." */
    size_t place_count;   /**< at most 20, the longest */
    const double* places; /**< begin and end of each in seconds: 2 * place_count numbers */
} quorvane_finding;

/** A stretch that was leveled as one. */
typedef struct quorvane_passage {
    size_t size;     /**< sizeof(quorvane_passage) */
    double begin_s;  /**< seconds from the start */
    double end_s;    /**< seconds from the start */
    double level_db; /**< dBFS before leveling; minus infinity: below the noise threshold */
    double gain_db;  /**< what it got */
} quorvane_passage;

/** @name The library */
/**@{*/

/** The library's version, "4.0.0". */
QUORVANE_API const char* quorvane_version(void);

/** The name of a code, "QUORVANE_BAD_AUDIO"; "unknown" for a number that is none. */
QUORVANE_API const char* quorvane_error_name(int code);

/** What a code means, in a few words of English. */
QUORVANE_API const char* quorvane_error_text(int code);

/**@}*/
/** @name Levelers */
/**@{*/

/** A new leveler with default options. Null without memory. */
QUORVANE_API quorvane_leveler* quorvane_new(void);

/** Frees a leveler and all that its functions returned. Null is allowed. */
QUORVANE_API void quorvane_free(quorvane_leveler* leveler);

/** Sets all options to their defaults. size: sizeof(quorvane_options). */
QUORVANE_API void quorvane_options_init(quorvane_options* options, size_t size);

/**
 * Sets the options of later calls; texts are copied. ::QUORVANE_BAD_OPTION and
 * ::QUORVANE_BAD_ARGUMENT leave the options as they were.
 */
QUORVANE_API int quorvane_configure(quorvane_leveler* leveler, const quorvane_options* options);

/** The sentence of the last call that failed, "" after one that did not. */
QUORVANE_API const char* quorvane_last_error(const quorvane_leveler* leveler);

/**
 * Ends the call under way, and later ones, with ::QUORVANE_CANCELLED until quorvane_clear_cancel().
 * Both can be called on any thread and in a signal handler.
 */
QUORVANE_API void quorvane_cancel(quorvane_leveler* leveler);

/** Lets calls run again after quorvane_cancel(). */
QUORVANE_API void quorvane_clear_cancel(quorvane_leveler* leveler);

/**@}*/
/** @name Calls */
/**@{*/

/** Levels frames in memory. A call that fails leaves the result's memory as it was. */
QUORVANE_API int quorvane_level(quorvane_leveler* leveler,
                                const quorvane_audio* audio,
                                const quorvane_buffer* result);

/**
 * Levels a file to a new file of the same format. Metadata is kept as `quorvane` keeps it, and the
 * output appears whole or not at all. Files of strangers are decoded within this process; the
 * program `quorvane` confines decoders to processes of their own.
 */
QUORVANE_API int quorvane_level_file(quorvane_leveler* leveler,
                                     const char* input,
                                     const char* output);

/**
 * Levels the tracks of one conversation, one for each voice, as `quorvane --together`. Arrays of
 * count structs, 2 to 64; tracks of 1 or 2 channels can differ in type, length and rate. A failure
 * names the track and leaves all results as they were. ::QUORVANE_BAD_OPTION with plain, tuning or
 * a target, which is for the mix of files.
 */
QUORVANE_API int quorvane_level_together(quorvane_leveler* leveler,
                                         const quorvane_audio* tracks,
                                         const quorvane_buffer* results,
                                         size_t count);

/**
 * The same of files, and their sum as the file mix, in the format of its name and for the target;
 * null: none. All outputs appear, or none (of those that replace a file: unless the disk fails).
 */
QUORVANE_API int quorvane_level_files_together(quorvane_leveler* leveler,
                                               const char* const* inputs,
                                               const char* const* outputs,
                                               size_t count,
                                               const char* mix);

/** Measures frames in memory: results of ::QUORVANE_BEFORE. */
QUORVANE_API int quorvane_measure(quorvane_leveler* leveler, const quorvane_audio* audio);

/** Measures a file. */
QUORVANE_API int quorvane_measure_file(quorvane_leveler* leveler, const char* input);

/**
 * Brings frames to the target of the options with one gain and a true-peak limiter, without
 * leveling. ::QUORVANE_BAD_OPTION without a target.
 */
QUORVANE_API int quorvane_limit(quorvane_leveler* leveler,
                                const quorvane_audio* audio,
                                const quorvane_buffer* result);

/**@}*/
/** @name Pushed frames: begin, write until the end, finish, read until nothing is left */
/**@{*/

/**
 * Begins audio of unknown length. What an earlier one left unread is dropped. Memory is bounded by
 * quorvane_options::memory_bytes; what is longer goes to the scratch folder.
 */
QUORVANE_API int quorvane_begin(quorvane_leveler* leveler,
                                int type,
                                int sample_rate_hz,
                                int channels);

/** The next frames. Type, rate and channels must be those of quorvane_begin(). */
QUORVANE_API int quorvane_write(quorvane_leveler* leveler, const quorvane_audio* audio);

/** Levels what was written. */
QUORVANE_API int quorvane_finish(quorvane_leveler* leveler);

/**
 * Reads up to so many frames of the result, and sets got to their number: 0 at the end, where the
 * temporary data is removed.
 */
QUORVANE_API int quorvane_read(quorvane_leveler* leveler,
                               const quorvane_buffer* result,
                               uint64_t frames,
                               uint64_t* got);

/**@}*/
/** @name Results of the last call; texts and arrays are valid until the next one */
/**@{*/

/** Selects the track of the results below, from 0, as after a call; after the last: the mix. */
QUORVANE_API int quorvane_select_track(quorvane_leveler* leveler, size_t index);

/** What was done: a ::quorvane_outcome. */
QUORVANE_API int quorvane_get_outcome(const quorvane_leveler* leveler);

/** Why the audio was handed back unchanged, "" otherwise. */
QUORVANE_API const char* quorvane_reason(const quorvane_leveler* leveler);

/** The result in one or two sentences for people. "" when nothing was measured. */
QUORVANE_API const char* quorvane_verdict(const quorvane_leveler* leveler);

/** All that is known as one JSON object, with the keys of `quorvane --json` (docs/results.md). */
QUORVANE_API const char* quorvane_facts_json(const quorvane_leveler* leveler);

/** ::QUORVANE_WRONG_STATE when that moment was not measured. */
QUORVANE_API int quorvane_get_loudness(quorvane_leveler* leveler,
                                       int moment,
                                       quorvane_loudness* loudness);

/** Loudness in windows of 3 s, LUFS, one each step_s seconds; null when not measured. */
QUORVANE_API const double* quorvane_short_term(const quorvane_leveler* leveler,
                                               int moment,
                                               size_t* count,
                                               double* step_s);

/** What the recording suffers from, the gravest first. */
QUORVANE_API size_t quorvane_finding_count(const quorvane_leveler* leveler);

/** A finding by its place, from 0. ::QUORVANE_BAD_ARGUMENT where there is none. */
QUORVANE_API int quorvane_get_finding(quorvane_leveler* leveler,
                                      size_t index,
                                      quorvane_finding* finding);

/** Stretches of one gain, in order of time. */
QUORVANE_API size_t quorvane_passage_count(const quorvane_leveler* leveler);

/** A passage by its place, from 0. ::QUORVANE_BAD_ARGUMENT where there is none. */
QUORVANE_API int quorvane_get_passage(quorvane_leveler* leveler,
                                      size_t index,
                                      quorvane_passage* passage);

/** The gain that leveling applied, dB, one value each step_s seconds; null: none. */
QUORVANE_API const double* quorvane_gain_curve(const quorvane_leveler* leveler,
                                               size_t* count,
                                               double* step_s);

/** What the user should know: "its target level was lowered by 1.5 dB: ...". */
QUORVANE_API size_t quorvane_note_count(const quorvane_leveler* leveler);

/** A note by its place, from 0; "" where there is none. */
QUORVANE_API const char* quorvane_note(const quorvane_leveler* leveler, size_t index);

/**@}*/

#ifdef __cplusplus
}
#endif

/* NOLINTEND(modernize-use-using,modernize-deprecated-headers) */

#endif
