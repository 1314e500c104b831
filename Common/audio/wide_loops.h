#pragma once

/**
 * For functions that are one loop over independent samples: compiled twice, for every processor and
 * for those with AVX2, whose vectors are twice as wide. The loader chooses once. Each sample meets
 * the same operations in both, so the bits are the same. For functions of one source only: Clang
 * gives the one that the loader chooses a name of its own, which other sources do not find.
 */
#if defined(__x86_64__) && defined(__gnu_linux__) && defined(__OPTIMIZE__) && \
    !defined(__SANITIZE_THREAD__)  // whose runtime is not there when the loader chooses
#define QUORVANE_WIDE_LOOP __attribute__((target_clones("avx2", "default")))
#define QUORVANE_AVX2 /* functions for it may be written by hand, and called where it is there */
#else
#define QUORVANE_WIDE_LOOP
#endif
