#include "cli/commands/engine_words.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/program_options.hpp>
#include <fstream>
#include <stdexcept>

#include "Common/CommandLine.h"
#include "Common/step/option_errors.h"

namespace po = boost::program_options;

namespace {

/** Both forms that the option library knows, "--name value" and "--name=value". */
std::string take_keep_intermediates(std::vector<std::string>& words) {
    const std::string name = "--keep-intermediates";
    // The first word is the program's name.
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
        // Removed, since the engine's parser does not know the option.
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

/** All options of the engine, so that a name that is cut short means here what it means there. */
po::options_description describe(EngineWords& found) {
    po::options_description known;
    known.add_options()("input-file", po::value<std::string>(&found.input));
    known.add_options()("output-file", po::value<std::string>(&found.output));
    known.add_options()("options-file,o", po::value<std::string>(&found.options_file));
    known.add_options()("bit-depth,b", po::value<std::string>());
    known.add_options()("help,h", "")("version", "");
    // The tuning options' values are not used here: only their names matter.
    int count = 0;
    const TuningOption* options = tuning_options(count);
    for (int i = 0; i < count; ++i) {
        known.add_options()(options[i].names, po::value<std::string>());
    }
    return known;
}

/** A pipe gives its lines once, and they are for the engine. */
bool can_be_read_twice(const std::string& path) {
    boost::system::error_code ignored;
    return boost::filesystem::is_regular_file(path, ignored);
}

/** An options file may name the output, too. */
void find_paths(EngineWords& found) {
    const po::options_description known = describe(found);
    try {
        po::variables_map values;
        po::store(po::command_line_parser({found.words.begin() + 1, found.words.end()})
                      .options(known)
                      .run(),
                  values);
        const std::string path =
            values.count("options-file") != 0 ? values["options-file"].as<std::string>() : "";
        std::ifstream file;
        if (can_be_read_twice(path) && open_options_file(path, file)) {
            // What the command line gave was stored first, and stays.
            po::store(po::parse_config_file(file, known), values);
        }
        // Fills the fields of found that describe() named.
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
