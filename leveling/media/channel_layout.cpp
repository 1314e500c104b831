#include "leveling/media/channel_layout.h"

#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

namespace quorvane::media {
namespace {

/** libsndfile's name for FFmpeg's name of a channel's place; both follow the mask of WAV. */
int place_of(AVChannel channel) {
    constexpr int kPlaces[] = {SF_CHANNEL_MAP_LEFT,
                               SF_CHANNEL_MAP_RIGHT,
                               SF_CHANNEL_MAP_CENTER,
                               SF_CHANNEL_MAP_LFE,
                               SF_CHANNEL_MAP_REAR_LEFT,
                               SF_CHANNEL_MAP_REAR_RIGHT,
                               SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
                               SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
                               SF_CHANNEL_MAP_REAR_CENTER,
                               SF_CHANNEL_MAP_SIDE_LEFT,
                               SF_CHANNEL_MAP_SIDE_RIGHT,
                               SF_CHANNEL_MAP_TOP_CENTER,
                               SF_CHANNEL_MAP_TOP_FRONT_LEFT,
                               SF_CHANNEL_MAP_TOP_FRONT_CENTER,
                               SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
                               SF_CHANNEL_MAP_TOP_REAR_LEFT,
                               SF_CHANNEL_MAP_TOP_REAR_CENTER,
                               SF_CHANNEL_MAP_TOP_REAR_RIGHT};
    const bool is_known = channel >= 0 && channel < static_cast<int>(std::size(kPlaces));
    return is_known ? kPlaces[channel] : SF_CHANNEL_MAP_INVALID;
}

/** Of all channels; empty where libsndfile has no name for one of them. */
std::vector<int> places_of(const AVChannelLayout& layout) {
    std::vector<int> places;
    for (int i = 0; i < layout.nb_channels; ++i) {
        const int place =
            place_of(av_channel_layout_channel_from_index(&layout, static_cast<unsigned>(i)));
        if (place == SF_CHANNEL_MAP_INVALID) {
            return {};
        }
        places.push_back(place);
    }
    return places;
}

}  // namespace

std::string layout_name(const AVChannelLayout& layout) {
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        return "";
    }
    constexpr std::size_t kMostBytes = 512;
    char name[kMostBytes] = "";
    return av_channel_layout_describe(&layout, name, sizeof name) > 0 ? name : "";
}

std::string other_name_of(const std::string& layout) {
    constexpr std::pair<const char*, const char*> kNames[] = {
        {"5.1(side)", "5.1"}, {"5.0(side)", "5.0"}, {"quad(side)", "quad"}};
    for (const auto& [side, back] : kNames) {
        if (layout == side || layout == back) {
            return layout == side ? back : side;
        }
    }
    return "";
}

void name_places(const AVChannelLayout& layout, SndfileHandle& file) {
    if (layout.nb_channels <= 2) {
        return;
    }
    if (layout.order == AV_CHANNEL_ORDER_AMBISONIC) {
        file.command(SFC_WAVEX_SET_AMBISONIC, nullptr, SF_AMBISONIC_B_FORMAT);
        return;
    }
    std::vector<int> places = places_of(layout);
    if (!places.empty()) {
        file.command(SFC_SET_CHANNEL_MAP_INFO, places.data(),
                     static_cast<int>(places.size() * sizeof(int)));
    }
}

}  // namespace quorvane::media
