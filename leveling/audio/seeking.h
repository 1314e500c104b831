#pragma once

#include <sndfile.h>

#include <cstdio>

namespace quorvane {

/**
 * Where a seek of libsndfile's virtual files leads, in bytes: offset from the start, from position
 * or from the end at size, as whence (SEEK_SET, SEEK_CUR, SEEK_END) says. -1 in front of the start.
 */
inline sf_count_t sought(sf_count_t offset, int whence, sf_count_t position, sf_count_t size) {
    const sf_count_t origin = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? position : size;
    return origin + offset < 0 ? -1 : origin + offset;
}

}  // namespace quorvane
