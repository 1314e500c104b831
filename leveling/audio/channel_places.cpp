#include "leveling/audio/channel_places.h"

#include <algorithm>

namespace quorvane {
namespace {

constexpr int kL = SF_CHANNEL_MAP_LEFT;
constexpr int kR = SF_CHANNEL_MAP_RIGHT;
constexpr int kC = SF_CHANNEL_MAP_CENTER;
constexpr int kLfe = SF_CHANNEL_MAP_LFE;
constexpr int kBl = SF_CHANNEL_MAP_REAR_LEFT;
constexpr int kBr = SF_CHANNEL_MAP_REAR_RIGHT;
constexpr int kBc = SF_CHANNEL_MAP_REAR_CENTER;
constexpr int kSl = SF_CHANNEL_MAP_SIDE_LEFT;
constexpr int kSr = SF_CHANNEL_MAP_SIDE_RIGHT;

constexpr double kBeside = 1.41;

/** The order of channels that FLAC prescribes (RFC 9639, section 9.1.3). */
std::vector<int> flac_places(int channels) {
    switch (channels) {
        case 3:
            return {kL, kR, kC};
        case 4:
            return {kL, kR, kBl, kBr};
        case 5:
            return {kL, kR, kC, kBl, kBr};
        case 6:
            return {kL, kR, kC, kLfe, kBl, kBr};
        case 7:
            return {kL, kR, kC, kLfe, kBc, kSl, kSr};
        case 8:
            return {kL, kR, kC, kLfe, kBl, kBr, kSl, kSr};
        default:
            return {};
    }
}

/** That of Vorbis I, section 4.3.9, and of Opus in Ogg (RFC 7845, section 5.1.1.2). */
std::vector<int> ogg_places(int channels) {
    switch (channels) {
        case 3:
            return {kL, kC, kR};
        case 4:
            return {kL, kR, kBl, kBr};
        case 5:
            return {kL, kC, kR, kBl, kBr};
        case 6:
            return {kL, kC, kR, kBl, kBr, kLfe};
        case 7:
            return {kL, kC, kR, kSl, kSr, kBc, kLfe};
        case 8:
            return {kL, kC, kR, kSl, kSr, kBl, kBr, kLfe};
        default:
            return {};
    }
}

bool has(const std::vector<int>& places, int place) {
    return std::find(places.begin(), places.end(), place) != places.end();
}

double weight_of(int place, bool has_sides) {
    switch (place) {
        case kLfe:
            return 0;
        case kSl:
        case kSr:
            return kBeside;
        case kBl:
        case kBr:
            return has_sides ? 1 : kBeside;
        default:
            return 1;
    }
}

}  // namespace

std::vector<int> channel_places(SndfileHandle file) {
    std::vector<int> map(static_cast<std::size_t>(file.channels()));
    const bool has_map = file.command(SFC_GET_CHANNEL_MAP_INFO, map.data(),
                                      static_cast<int>(map.size() * sizeof(int))) == SF_TRUE;
    const auto named = std::count_if(map.begin(), map.end(),
                                     [](int place) { return place > SF_CHANNEL_MAP_MONO; });
    if (has_map && named == file.channels()) {
        return map;
    }
    switch (file.format() & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_FLAC:
            return flac_places(file.channels());
        case SF_FORMAT_OGG:
            return ogg_places(file.channels());
        default:
            return {};
    }
}

void copy_places(const SndfileHandle& from, SndfileHandle& to) {
    if (from.channels() <= 2 || from.channels() != to.channels()) {
        return;
    }
    std::vector<int> places = channel_places(from);
    if (!places.empty()) {
        to.command(SFC_SET_CHANNEL_MAP_INFO, places.data(),
                   static_cast<int>(places.size() * sizeof(int)));
    }
}

std::vector<double> loudness_weights(const SndfileHandle& file) {
    std::vector<double> weights;
    if (file.channels() <= 2) {
        return weights;
    }
    const std::vector<int> places = channel_places(file);
    const bool has_sides = has(places, kSl) || has(places, kSr);
    for (const int place : places) {
        weights.push_back(weight_of(place, has_sides && (has(places, kBl) || has(places, kBr))));
    }
    return weights;
}

}  // namespace quorvane
