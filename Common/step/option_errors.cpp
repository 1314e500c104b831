#include "Common/step/option_errors.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/program_options.hpp>
#include <map>

namespace po = boost::program_options;

namespace level_engine {

namespace {

// For a percent sign while the library works: a character that no text holds.
constexpr char kStandIn = '\x01';

/** Way in to the values that the library keeps for its texts, which are protected there. */
class Substitutions : public po::error_with_option_name {
  public:
    static std::map<std::string, std::string>& of(po::error_with_option_name& error) {
        return error.*(&Substitutions::m_substitutions);
    }
};

}  // namespace

std::string text_of_option_error(std::exception& failure) {
    auto* error = dynamic_cast<po::error_with_option_name*>(&failure);
    if (error == nullptr) {
        return failure.what();
    }
    for (auto& [placeholder, value] : Substitutions::of(*error)) {
        std::replace(value.begin(), value.end(), '%', kStandIn);
    }
    std::string text = error->what();
    std::replace(text.begin(), text.end(), kStandIn, '%');
    return text;
}

bool open_options_file(const std::string& path, std::ifstream& file) {
    // A folder opens like a file and then reads as an empty one.
    boost::system::error_code ignored;
    if (boost::filesystem::is_directory(path, ignored)) {
        return false;
    }
    file.open(path);
    file.peek();
    // The parser would take a failed read for the end of the file, and the options would be lost.
    const bool is_readable = file.is_open() && !file.bad();
    file.clear();
    return is_readable;
}

}  // namespace level_engine
