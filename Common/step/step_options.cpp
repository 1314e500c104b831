#include "Common/step/step_options.h"

#include <boost/filesystem.hpp>
#include <exception>
#include <fstream>

#include "Common/reporting/failure.h"
#include "Common/step/option_errors.h"

namespace po = boost::program_options;

/*
 * Two descriptions make a command line: the visible group is what the help shows, the hidden one is
 * parsed with it. Every parse begins with an empty map of values, so that one object can parse
 * twice; the defaults that it shows stay those of its declaration.
 */

namespace {
// As in the engine's own help.
constexpr unsigned kLineLength = 80;
constexpr unsigned kDescriptionColumn = 40;
}  // namespace

StepOptions::StepOptions(const std::string& caption, std::string& options_file, OptionsFile rule)
    : options_file_(&options_file),
      options_file_rule_(rule),
      visible_(caption, kLineLength, kDescriptionColumn),
      hidden_("Hidden options") {
    visible_.add_options()("help,h", "show this help message")(
        "options-file,o", po::value<std::string>(options_file_), "options file");
}

StepOptions::StepOptions(const std::string& caption, const std::string& help_text)
    : options_file_rule_(kNone),
      visible_(caption, kLineLength, kDescriptionColumn),
      hidden_("Hidden options") {
    visible_.add_options()("help,h", help_text.c_str());
}

StepOptions& StepOptions::positional(const char* name, std::string& field, const char* help) {
    hidden_.add_options()(name, po::value<std::string>(&field), help);
    return also_positional(name);
}

StepOptions& StepOptions::also_positional(const char* name) {
    positions_.add(name, 1);
    return *this;
}

StepOptions& StepOptions::failure_texts(const std::string& prefix, const std::string& unknown) {
    failure_prefix_ = prefix;
    unknown_failure_ = unknown;
    return *this;
}

ParseResult StepOptions::parse(int argc, const char* const* argv) {
    ParseResult result = parse_or_failure(argc, argv);
    // Noted here, where the cause is known; in which words it is said is the step's affair.
    if (result.status == ParseResult::kFailed ||
        result.status == ParseResult::kUnreadableOptionsFile) {
        reporting::note_failure(reporting::Kind::kOther, result.message);
    }
    return result;
}

ParseResult StepOptions::parse_or_failure(int argc, const char* const* argv) {
    try {
        return parse_throwing(argc, argv);
    } catch (const std::bad_alloc&) {
        throw;  // nothing is wrong with the options
    } catch (std::exception& failure) {
        return {ParseResult::kFailed, failure_prefix_ + text_of_option_error(failure)};
    } catch (...) {
        return {ParseResult::kFailed, unknown_failure_};
    }
}

/**
 * What is stored first stands: the command line before the options file. A request for help comes
 * before all complaints about values, which only notify makes; it fills the fields, at the very
 * end, so help or a file that does not open leaves them alone.
 */
ParseResult StepOptions::parse_throwing(int argc, const char* const* argv) {
    po::options_description all("Allowed options", kLineLength, kDescriptionColumn);
    all.add(visible_).add(hidden_);
    values_.clear();
    po::store(po::command_line_parser(argc, argv).options(all).positional(positions_).run(),
              values_);
    if (options_file_rule_ != kNone && values_.count("options-file") != 0) {
        const std::string path = values_["options-file"].as<std::string>();
        std::ifstream file;
        boost::system::error_code ignored;
        if (open_options_file(path, file)) {
            po::store(po::parse_config_file(file, all), values_);
            // One that may be missing must still be readable where it is there.
        } else if (options_file_rule_ == kMustOpen || boost::filesystem::exists(path, ignored)) {
            return {ParseResult::kUnreadableOptionsFile, "error opening " + path};
        }
    }
    // After the file, which may ask for help as well.
    if (values_.count("help") != 0) {
        return {ParseResult::kHelp, help()};
    }
    po::notify(values_);
    return {};
}

bool StepOptions::given(const std::string& name) const {
    // The library puts defaults into the map, too.
    return values_.count(name) != 0 && !values_[name].defaulted();
}

StepOptions& StepOptions::help_caption(const std::string& caption) {
    help_caption_ = caption;
    return *this;
}

std::string StepOptions::help() const {
    std::ostringstream text;
    if (help_caption_.empty()) {
        text << visible_;
    } else {
        po::options_description all(help_caption_, kLineLength, kDescriptionColumn);
        all.add(visible_);
        text << all;
    }
    return text.str();
}
