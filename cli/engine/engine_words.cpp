#include "cli/engine/engine_words.h"

#include <algorithm>
#include <boost/program_options.hpp>
#include <stdexcept>

namespace po = boost::program_options;

namespace {

/** Both forms that the option library knows, "--name value" and "--name=value". */
std::string take_keep_intermediates(std::vector<std::string>& words) {
    const std::string name = "--keep-intermediates";
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto word = words.begin() + static_cast<std::ptrdiff_t>(i);
        const bool joined = word->compare(0, name.size() + 1, name + "=") == 0;
        if (!joined && *word != name) {
            continue;
        }
        const bool separate = !joined && i + 1 < words.size();
        std::string value = joined ? word->substr(name.size() + 1) : separate ? words[i + 1] : "";
        if (value.empty()) {
            throw std::runtime_error(name + " needs a directory");
        }
        words.erase(word, word + (separate ? 2 : 1));
        return value;
    }
    return "";
}

/** "quorvane --input-file= --help" has the engine's help and not the people's command's. */
void drop_empty_input_before_help(std::vector<std::string>& words) {
    const bool asks = std::any_of(words.begin() + 1, words.end(), [](const std::string& word) {
        return word == "--help" || word == "-h" || word == "--version";
    });
    if (asks) {
        words.erase(std::remove(words.begin() + 1, words.end(), "--input-file="), words.end());
    }
}

void find_paths(EngineWords& found) {
    po::options_description known;
    known.add_options()("input-file", po::value<std::string>(&found.input));
    known.add_options()("output-file", po::value<std::string>(&found.output));
    try {
        po::variables_map values;
        po::store(po::command_line_parser({found.words.begin() + 1, found.words.end()})
                      .options(known)
                      .allow_unregistered()
                      .run(),
                  values);
        po::notify(values);
    } catch (const po::error&) {  // its text is the engine's to tell
    }
}

}  // namespace

EngineWords read_engine_words(std::vector<std::string> words) {
    EngineWords found;
    found.keep_intermediates = take_keep_intermediates(words);
    drop_empty_input_before_help(words);
    found.words = std::move(words);
    find_paths(found);
    return found;
}
