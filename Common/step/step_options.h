#pragma once

#include <boost/program_options.hpp>
#include <locale>
#include <sstream>
#include <string>

namespace level_engine {

/** How a command line was understood. */
struct ParseResult {
    enum Status { kOk, kHelp, kUnreadableOptionsFile, kFailed };

    Status status = kOk;
    std::string message;  // the help text, or one line that says what is wrong
};

/**
 * The command line of one step: a visible group captioned with the step's name that begins with
 * "help,h" and "options-file,o", hidden options that are also positional, and an options file of
 * name=value lines. A value on the command line wins over the options file's.
 *
 *     StepOptions options("gate", args.options_file);
 *     options.option("gate__attack,a", args.attack, "attack (ms)")
 *         .positional("sound-file-in", args.sound_file_in, "input sound file");
 *     const ParseResult result = options.parse(argc, argv);
 *
 * The default, which the help shows and which applies when the option is absent, is the field's
 * value when the option was declared.
 */
class StepOptions {
  public:
    /** How the option for an options file works; kNone: the step has none. */
    enum OptionsFile { kMustOpen, kMayFailToOpen, kNone };

    /** caption: above the group in the help. options_file receives the path that was given. */
    StepOptions(const std::string& caption,
                std::string& options_file,
                OptionsFile rule = kMustOpen);

    /** A command line without an options file and with the step's own words for help. */
    StepOptions(const std::string& caption, const std::string& help_text);

    /** names: "long" or "long,l". help: one line. The field must live until the last parse. */
    template <class T>
    StepOptions& option(const char* names, T& field, const char* help) {
        visible_.add_options()(
            names, boost::program_options::value<T>(&field)->default_value(field, shown(field)),
            help);
        return *this;
    }

    StepOptions& option(const char* names, double& field, const char* help);

    /** An option that leaves its field alone when it is absent, and shows no default. */
    template <class T>
    StepOptions& optional(const char* names, T& field, const char* help) {
        visible_.add_options()(names, boost::program_options::value<T>(&field), help);
        return *this;
    }

    StepOptions& optional(const char* names, double& field, const char* help);

    /** A hidden option that also takes the next positional argument. */
    StepOptions& positional(const char* name, std::string& field, const char* help);

    /** Lets a visible option take the next positional argument too. */
    StepOptions& also_positional(const char* name);

    /** Fills the fields, all of them or none. Never throws. */
    ParseResult parse(int argc, const char* const* argv);

    /** Whether the last parse met the option, other than by its default. */
    bool given(const std::string& name) const;

    /** Puts a line above the group in the help. */
    StepOptions& help_caption(const std::string& caption);

    /** The visible group as the help shows it. */
    std::string help() const;

    /** Replaces the texts of the two kinds of failure of the parser itself. */
    StepOptions& failure_texts(const std::string& prefix, const std::string& unknown);

  private:
    template <class T>
    static std::string shown(const T& value) {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << value;
        return text.str();
    }

    ParseResult parse_or_failure(int argc, const char* const* argv);
    ParseResult parse_throwing(int argc, const char* const* argv);

    std::string* options_file_ = nullptr;
    OptionsFile options_file_rule_;
    std::string help_caption_;
    std::string failure_prefix_ = "error: ";
    std::string unknown_failure_ = "Exception of unknown type occured while parsing command line";
    boost::program_options::options_description visible_;
    boost::program_options::options_description hidden_;
    boost::program_options::positional_options_description positions_;
    boost::program_options::variables_map values_;
};

}  // namespace level_engine

using level_engine::ParseResult;
using level_engine::StepOptions;
