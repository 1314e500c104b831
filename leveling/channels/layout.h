#pragma once

#include <string>
#include <vector>

namespace quorvane {

/** What the channels of a file are to each other. */
enum class ChannelUse {
    Tracks,    // a microphone for each voice: as the tracks of a conversation
    Dialogue,  // a centre with the dialogue: it is leveled, the others stay as they are
    Curve,     // one sound from all of them: one gain for all but the LFE
    Each,      // nothing to each other: each is leveled by itself
};

/** What is known of a file's channels. */
struct ChannelLayout {
    std::vector<int> map;            // libsndfile's names of the places; empty: the file names none
    bool is_unnamed = false;         // the file has a field for the places and leaves it empty
    bool is_poly = false;            // a recorder's tracks, as its metadata say
    bool is_scene = false;           // one sound field, such as ambisonics
    std::vector<std::string> names;  // of a recorder's tracks, empty where it gave none

    /** The channel with the dialogue, -1 where there is none. */
    int centre() const;

    /** Whether a channel is for low effects alone. */
    bool is_lfe(int channel) const;

    /** Of a channel in a mono sum of all (ITU-R BS.775): 1 in front, 0.707 elsewhere, no LFE. */
    double downmix_weight(int channel) const;
};

/** Throws std::runtime_error with the cause. */
ChannelLayout read_layout(const std::string& path);

/** Leaves the places of the channels open in an extensible WAV file that was just written. */
void clear_mask(const std::string& path);

/** The word of --channels for a use, and back; false for another word. */
const char* to_text(ChannelUse use);
bool use_from_text(const std::string& word, ChannelUse& use);

}  // namespace quorvane
