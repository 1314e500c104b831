#pragma once

#include <cstdint>
#include <string>

/*
 * An Ogg file is a row of pages, each with the number of its stream and a check sum over all of it.
 */

namespace quorvane {

/** The serial number of an Ogg file's first stream. Throws std::runtime_error for no Ogg file. */
std::uint32_t ogg_serial(const std::string& path);

/** False when the file ends within a page or on one that is not marked as a stream's last. */
bool ogg_ends_whole(const std::string& path);

/** What the pages of an Ogg file show of its state. */
struct OggState {
    bool is_damaged = false;       // bytes, or pages, between its pages are wrong or missing
    bool is_marked_as_end = true;  // its last page is, and it is there as a whole
};

/** Checks every page's sum and number; behind damage it goes on. Throws std::system_error. */
OggState check_ogg_pages(const std::string& path);

/**
 * Gives every page of an Ogg file with one stream the serial number, and a new checksum: an
 * encoder draws the number at random, and equal inputs would not give equal outputs. Throws
 * std::system_error, or std::runtime_error when the pages cannot be followed.
 */
void set_ogg_serial(const std::string& path, std::uint32_t serial);

/** The same for a file in memory. Throws std::runtime_error. */
void set_ogg_serial_of(std::string& file, std::uint32_t serial);

}  // namespace quorvane
