#include "Common/step/step_options.h"

#include <algorithm>
#include <boost/lexical_cast.hpp>
#include <exception>
#include <fstream>
#include <locale>
#include <vector>

#include "Common/reporting/failure.h"
#include "Common/step/option_errors.h"

namespace po = boost::program_options;

namespace level_engine {

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

namespace {

/** A number whose text has a decimal point, whatever the C++ library's global locale has. */
struct Decimal {
    double value;
};

/** As the option library converts a double, which takes that locale's decimal point. */
double to_double(std::string text) {
    const char point = std::use_facet<std::numpunct<char>>(std::locale()).decimal_point();
    if (point != '.') {
        if (text.find(point) != std::string::npos) {
            throw boost::bad_lexical_cast();
        }
        std::replace(text.begin(), text.end(), '.', point);
    }
    return boost::lexical_cast<double>(text);
}

/** The option library finds this by its name. */
void validate(boost::any& value, const std::vector<std::string>& words, Decimal* /*type*/, int) {
    po::validators::check_first_occurrence(value);
    const std::string& text = po::validators::get_single_string(words);
    try {
        value = Decimal{to_double(text)};
    } catch (const boost::bad_lexical_cast&) {
        throw po::invalid_option_value(text);
    }
}

po::typed_value<Decimal>* decimal_value(double& field) {
    return po::value<Decimal>()->notifier([&field](const Decimal& given) { field = given.value; });
}

}  // namespace

StepOptions& StepOptions::option(const char* names, double& field, const char* help) {
    visible_.add_options()(names, decimal_value(field)->default_value(Decimal{field}, shown(field)),
                           help);
    return *this;
}

StepOptions& StepOptions::optional(const char* names, double& field, const char* help) {
    visible_.add_options()(names, decimal_value(field), help);
    return *this;
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
    } catch (const std::bad_alloc& failure) {
        reporting::note_failure(reporting::Kind::kSystem, "there is not enough memory");
        return {ParseResult::kFailed, failure_prefix_ + failure.what()};
    } catch (std::exception& failure) {
        return {ParseResult::kFailed, failure_prefix_ + text_of_option_error(failure)};
    } catch (...) {
        return {ParseResult::kFailed, unknown_failure_};
    }
}

/**
 * The value that is stored first wins: the command line before the options file. A request for help
 * comes before all complaints about values, which only notify makes; it fills the fields, at the
 * very end, so help or a file that does not open leaves them alone.
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
        if (open_options_file(path, file)) {
            po::store(po::parse_config_file(file, all), values_);
        } else if (options_file_rule_ == kMustOpen) {
            return {ParseResult::kUnreadableOptionsFile, "error opening " + path};
        }
    }
    // After the options file, which may contain "help" too.
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

}  // namespace level_engine
