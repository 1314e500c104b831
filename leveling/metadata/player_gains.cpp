#include "leveling/metadata/player_gains.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/predicate.hpp>
#include <locale>

namespace quorvane {

bool is_player_gain(const std::string& name) {
    const std::string upper = boost::algorithm::to_upper_copy(name, std::locale::classic());
    return boost::algorithm::starts_with(upper, "REPLAYGAIN_") ||
           boost::algorithm::starts_with(upper, "MP3GAIN_") || upper == "R128_TRACK_GAIN" ||
           upper == "R128_ALBUM_GAIN" || upper == "ITUNNORM";
}

}  // namespace quorvane
