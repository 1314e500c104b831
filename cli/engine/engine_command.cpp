#include "cli/engine/engine_command.h"

#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/program_options.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "Common/level.h"
#include "cli/engine/hooks.h"
#include "cli/storage/private_directory.h"

namespace fs = boost::filesystem;
namespace po = boost::program_options;

namespace {

constexpr int kFailure = 1;
constexpr int kCancelled = 3;

/** The few words of the command line that concern the program and not the engine alone. */
struct Paths {
    std::string input;
    std::string output;
    std::string keep_intermediates;
};

/** Takes --keep-intermediates and its value out of the words. Throws po::error without a value. */
std::string take_keep_intermediates(std::vector<std::string>& words) {
    const std::string name = "--keep-intermediates";
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto word = words.begin() + static_cast<long>(i);
        if (word->compare(0, name.size() + 1, name + "=") == 0) {
            const std::string value = word->substr(name.size() + 1);
            words.erase(word);
            return value;
        }
        if (*word == name) {
            if (i + 1 == words.size() || words[i + 1].empty()) {
                throw po::error(name + " needs a directory");
            }
            const std::string value = words[i + 1];
            words.erase(word, word + 2);
            return value;
        }
    }
    return "";
}

/** Looks at the two paths; what is wrong with the command line is left to the engine to say. */
void find_paths(const std::vector<std::string>& words, Paths& paths) {
    po::options_description known;
    known.add_options()("input-file", po::value<std::string>(&paths.input));
    known.add_options()("output-file", po::value<std::string>(&paths.output));
    try {
        po::variables_map values;
        po::store(po::command_line_parser({words.begin() + 1, words.end()})
                      .options(known)
                      .allow_unregistered()
                      .run(),
                  values);
        po::notify(values);
    } catch (const po::error&) {
    }
}

/** Better now than after an hour's work. */
void require_output_folder(const std::string& output) {
    const fs::path folder = fs::absolute(output).parent_path();
    if (!fs::is_directory(folder)) {
        throw std::runtime_error(output + ": there is no folder " + folder.string());
    }
    if (access(folder.c_str(), W_OK) != 0) {
        throw std::runtime_error(output + ": the folder " + folder.string() + " cannot be written");
    }
    if (fs::is_directory(output)) {
        throw std::runtime_error(output + ": is a folder");
    }
}

int show_progress(void* /*context*/, float fraction) {
    std::printf("%3d%%\r", static_cast<int>(fraction * 100.0F + 0.5F));
    std::fflush(stdout);
    return 0;
}

int ignore_progress(void* /*context*/, float /*fraction*/) {
    return 0;
}

extern "C" void request_cancel(int /*signal*/) {
    levelRequestCancel();
}

void cancel_on_signals() {
    struct sigaction action = {};
    action.sa_handler = request_cancel;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

int level(std::vector<std::string>& words) {
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    const LevelProgress progress = isatty(STDOUT_FILENO) != 0 ? show_progress : ignore_progress;
    return levelMain(static_cast<int>(words.size()), argv.data(), "", progress, nullptr);
}

void say_what_came_of_it(const Paths& paths, int result) {
    if (paths.input.empty() || paths.output.empty()) {
        return;  // help, version, or a command line that the engine has refused
    }
    if (result == kCancelled) {
        std::cerr << paths.input << ": cancelled" << std::endl;
    } else if (result != 0) {
        std::cerr << "\n" << paths.input << ": not leveled" << std::endl;
    } else if (hooks::delivery() == hooks::kDelivered) {
        std::cout << paths.input << ": leveled, " << paths.output << std::endl;
    } else {
        std::cout << paths.input << ": copied unchanged, " << paths.output << std::endl;
    }
}

}  // namespace

int run_engine_command(int argc, char** argv) {
    std::vector<std::string> words(argv, argv + argc);
    try {
        // "--input-file= --help" asks for this command line's help; alone it has a value missing.
        const auto is_help = [](const std::string& word) {
            return word == "--help" || word == "-h";
        };
        if (std::any_of(words.begin(), words.end(), is_help)) {
            words.erase(std::remove(words.begin(), words.end(), "--input-file="), words.end());
        }
        Paths paths;
        paths.keep_intermediates = take_keep_intermediates(words);
        find_paths(words, paths);
        if (!paths.output.empty()) {
            require_output_folder(paths.output);
        }
        cancel_on_signals();
        const PrivateDirectory directory(paths.keep_intermediates);
        hooks::use_temporary_directory(directory.path());
        hooks::protect_input(paths.input);
        levelKeepIntermediates(paths.keep_intermediates.empty() ? 0 : 1);

        int result = level(words);
        if (result == 0 && hooks::delivery() == hooks::kFailed) {
            result = kFailure;
        }
        say_what_came_of_it(paths, result);
        return result;
    } catch (const std::exception& failure) {
        std::cerr << "quorvane: " << failure.what() << std::endl;
        return kFailure;
    }
}
