#include "leveling/channels/layout.h"

#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sndfile.hh>
#include <stdexcept>

#include "leveling/audio/channel_places.h"
#include "leveling/audio/sound_file.h"

namespace quorvane {
namespace {

/** The bytes of a WAV file's chunk, "" where there is none. */
std::string chunk_of(SndfileHandle& file, const char* id) {
    SF_CHUNK_INFO info{};
    std::strncpy(info.id, id, sizeof info.id - 1);
    info.id_size = static_cast<unsigned>(std::strlen(id));
    SF_CHUNK_ITERATOR* const found = sf_get_chunk_iterator(file.rawHandle(), &info);
    if (found == nullptr || sf_get_chunk_size(found, &info) != SF_ERR_NO_ERROR) {
        return "";
    }
    constexpr unsigned kMost = 1 << 20;  // of what a recorder notes
    std::string bytes(std::min(info.datalen, kMost), '\0');
    info.datalen = static_cast<unsigned>(bytes.size());
    info.data = &bytes[0];
    return sf_get_chunk_data(found, &info) == SF_ERR_NO_ERROR ? bytes : "";
}

/** The texts between the tags of an element, in order. */
std::vector<std::string> elements(const std::string& xml, const std::string& name) {
    const std::string open = "<" + name + ">";
    const std::string close = "</" + name + ">";
    std::vector<std::string> found;
    for (std::size_t at = 0; (at = xml.find(open, at)) != std::string::npos;) {
        at += open.size();
        const std::size_t end = xml.find(close, at);
        if (end == std::string::npos) {
            break;
        }
        found.push_back(xml.substr(at, end - at));
        at = end;
    }
    return found;
}

void read_ixml(SndfileHandle& file, ChannelLayout& layout) {
    for (const std::string& track : elements(chunk_of(file, "iXML"), "TRACK")) {
        const std::vector<std::string> name = elements(track, "NAME");
        layout.names.push_back(name.empty() ? "" : name.front());
    }
    layout.is_poly = layout.names.size() > 1;
}

}  // namespace

int ChannelLayout::centre() const {
    const auto found = std::find(map.begin(), map.end(), SF_CHANNEL_MAP_CENTER);
    return found == map.end() ? -1 : static_cast<int>(found - map.begin());
}

bool ChannelLayout::is_lfe(int channel) const {
    const auto at = static_cast<std::size_t>(channel);
    return at < map.size() && map[at] == SF_CHANNEL_MAP_LFE;
}

double ChannelLayout::downmix_weight(int channel) const {
    constexpr double kBehind = 0.7071067811865476;
    const auto at = static_cast<std::size_t>(channel);
    if (at >= map.size()) {
        return 1;
    }
    switch (map[at]) {
        case SF_CHANNEL_MAP_LFE:
            return 0;
        case SF_CHANNEL_MAP_LEFT:
        case SF_CHANNEL_MAP_RIGHT:
        case SF_CHANNEL_MAP_CENTER:
        case SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER:
        case SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER:
            return 1;
        default:
            return kBehind;
    }
}

// libsndfile fills in a mask of its own where it is given none.
void clear_mask(const std::string& path) {
    constexpr std::size_t kHead = 4096;      // the chunk is the first, or behind one for sizes
    constexpr std::size_t kMaskIn = 8 + 20;  // bytes: id and size, then what comes before it
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    std::string head(kHead, '\0');
    file.read(&head[0], static_cast<std::streamsize>(head.size()));
    file.clear();
    const std::size_t at = head.find("fmt ");
    if (at == std::string::npos) {
        return;
    }
    file.seekp(static_cast<std::streamoff>(at + kMaskIn));
    file.write("\0\0\0\0", 4);
    if (!file.flush()) {
        throw std::runtime_error("its channel mask could not be written");
    }
}

ChannelLayout read_layout(const std::string& path) {
    SndfileHandle file = open_to_read(path);
    ChannelLayout layout;
    layout.map = channel_places(file);
    layout.is_unnamed =
        layout.map.empty() && (file.format() & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX;
    layout.is_scene = file.command(SFC_WAVEX_GET_AMBISONIC, nullptr, 0) == SF_AMBISONIC_B_FORMAT;
    read_ixml(file, layout);
    return layout;
}

namespace {

struct UseRow {
    ChannelUse use;
    const char* word;
};

constexpr UseRow kUses[] = {{ChannelUse::Tracks, "tracks"},
                            {ChannelUse::Dialogue, "dialogue"},
                            {ChannelUse::Curve, "curve"},
                            {ChannelUse::Each, "each"}};

}  // namespace

const char* to_text(ChannelUse use) {
    return std::find_if(std::begin(kUses), std::end(kUses),
                        [&](const UseRow& row) { return row.use == use; })
        ->word;
}

bool use_from_text(const std::string& word, ChannelUse& use) {
    const auto* const row = std::find_if(std::begin(kUses), std::end(kUses),
                                         [&](const UseRow& each) { return word == each.word; });
    if (row == std::end(kUses)) {
        return false;
    }
    use = row->use;
    return true;
}

}  // namespace quorvane
