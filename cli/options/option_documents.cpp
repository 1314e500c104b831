#include "cli/options/option_documents.h"

#include <fmt/format.h>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <vector>

#include "cli/options/option_table.h"
#include "leveling/audio/audio_formats.h"
#include "leveling/facts/destinations.h"

/*
 * The completions offer for a path what the program takes: folders and audio files that can be
 * written back, but not the outputs of an earlier run. Bash splits "--color=auto" into three words
 * at the "=", which the function puts together again; zsh and fish do that by themselves.
 */

namespace quorvane {
namespace {

using boost::algorithm::replace_all_copy;

/** What a shell offers for an argument, between spaces; empty where it is free text or a file. */
std::string words_of(Completion completion) {
    std::vector<std::string> words;
    for (const char* word : choices(completion)) {
        words.emplace_back(word);
    }
    return boost::algorithm::join(words, " ");
}

/** A hyphen that stays a hyphen-minus, and no line that looks like a request. */
std::string roff(const std::string& text) {
    // Backslashes first, since the second replacement adds some.
    return replace_all_copy(replace_all_copy(text, "\\", "\\e"), "-", "\\-");
}

/** For a shell: a quote inside ends the string, stands escaped, and begins it again. */
std::string single_quoted(const std::string& text) {
    return "'" + replace_all_copy(text, "'", "'\\''") + "'";
}

/** Those that this machine's library writes; they are fixed when the program is built. */
std::string audio_extensions(const char* between) {
    return fmt::format("{}", fmt::join(writable_extensions(), between));
}

/** The bash line that answers for an option's argument. */
std::string bash_reply(Completion completion) {
    const std::string words = words_of(completion);
    // A list of words wins over the kind of the argument.
    if (!words.empty()) {
        return fmt::format("COMPREPLY=($(compgen -W '{}' -- \"$cur\"))", words);
    }
    switch (completion) {
        case Completion::Directory:
            return "COMPREPLY=($(compgen -d -- \"$cur\"))";
        case Completion::File:
            return "COMPREPLY=($(compgen -f -- \"$cur\"))";
        default:
            // Free text: nothing is offered, also no file names.
            return "COMPREPLY=()";
    }
}

}  // namespace

// As roff: a heading for each group, an item for each option.
std::string man_options() {
    std::string text;
    for (OptionGroup group : option_groups()) {
        text += fmt::format(".SS {}\n", title(group));
        for (const OptionRow& row : option_table()) {
            if (row.group != group) {
                continue;
            }
            // An item: the next line is its tag, what follows is indented.
            text += ".TP\n";
            if (row.letter) {
                text += fmt::format("\\fB\\-{}\\fR, ", row.letter);
            }
            text += fmt::format("\\fB\\-\\-{}\\fR", roff(row.name));
            if (!row.argument.empty()) {
                text += fmt::format(" \\fI{}\\fR", row.argument);
            }
            text += "\n" + roff(row.help) + ".\n";
        }
    }
    return text;
}

std::string man_destinations() {
    std::string text;
    for (const Destination& destination : destinations()) {
        // .BR alternates bold and roman, so that the brackets around a second word stay roman.
        text += destination.also.empty()
                    ? fmt::format(".TP\n.B {}\n", destination.word)
                    : fmt::format(".TP\n.BR {} \" (\" {} )\n", destination.word, destination.also);
        std::string asks = fmt::format("{}: {}", destination.name, destination.asks(2));
        // The target of one channel differs from that of more.
        if (destination.mono_target != destination.other_target) {
            asks += "; with one channel " + destination.asks(1);
        }
        // Plain roff is ASCII: \- is the minus and \(+- the sign of plus and minus.
        asks = replace_all_copy(replace_all_copy(asks, "−", "-"), "±", "+-");
        text += replace_all_copy(roff(asks), "+\\-", "\\(+-") + "\n";
    }
    return text;
}

std::string bash_completion() {
    std::string all;
    std::string cases;
    for (const OptionRow& row : option_table()) {
        // The pattern of a case branch, "--output|-o"; with spaces it is two words to offer.
        std::string names = "--" + row.name;
        if (row.letter) {
            names += fmt::format("|-{}", row.letter);
        }
        all += (all.empty() ? "" : " ") + replace_all_copy(names, "|", " ");
        if (row.argument.empty()) {
            continue;
        }
        cases += fmt::format("        {}) {}; return ;;\n", names, bash_reply(row.completion));
    }
    // A line end separates words, for names with spaces; lists of words set IFS to a space for the
    // one command that splits them.
    return fmt::format(
        "# bash completion for quorvane\n"
        "_quorvane() {{\n"
        "    local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}} IFS=$'\\n'\n"
        "    # \"=\" is a word of its own: --color=auto are three.\n"
        "    [[ $cur == = ]] && cur=\n"
        "    [[ $prev == = ]] && prev=${{COMP_WORDS[COMP_CWORD-2]}}\n"
        "    case $prev in\n{}    esac\n"
        "    if [[ $cur == -* ]]; then\n"
        "        COMPREPLY=($(IFS=' '; compgen -W '{}' -- \"$cur\"))\n"
        "    else\n"
        "        COMPREPLY=($(compgen -d -- \"$cur\"; compgen -f -- \"$cur\" |\n"
        "            grep -iE '\\.({})$' | grep -v -- '-leveled\\.[^.]*$'))\n"
        "    fi\n"
        "}}\n"
        "complete -o filenames -F _quorvane quorvane\n",
        replace_all_copy(cases, "compgen -W", "IFS=' '; compgen -W"), all, audio_extensions("|"));
}

std::string zsh_completion() {
    // -s allows -qv for -q -v, and -S offers no options behind "--".
    std::string text = "#compdef quorvane\nsetopt localoptions extendedglob\n_arguments -s -S \\\n";
    for (const OptionRow& row : option_table()) {
        std::string help = row.help;
        // The three that mean something inside an _arguments description.
        for (const char* special : {"[", "]", ":"}) {
            help = replace_all_copy(help, special, std::string("\\") + special);
        }
        std::string action;
        if (!row.argument.empty()) {
            const std::string words = words_of(row.completion);
            // "_files -/" offers folders, "_files" any file, an empty action nothing.
            action = fmt::format(":{}:{}", row.argument,
                                 !words.empty()                            ? "(" + words + ")"
                                 : row.completion == Completion::Directory ? "_files -/"
                                 : row.completion == Completion::File      ? "_files"
                                                                           : "");
        }
        const std::string end = single_quoted(fmt::format("[{}]{}", help, action));
        if (row.letter) {
            // Either form excludes the other, and both have one description.
            text +=
                fmt::format("  '(-{0} --{1})'{{-{0},--{1}}}{2} \\\n", row.letter, row.name, end);
        } else {
            text += fmt::format("  --{}{} \\\n", row.name, end);
        }
    }
    // Folders are offered as well: _files -g does that.
    return text + fmt::format("  '*:path:_files -g \"(#i)*.({})~*-leveled.*(-.)\"'\n",
                              audio_extensions("|"));
}

std::string fish_completion() {
    std::string text = fmt::format(
        "# fish completion for quorvane\n"
        "complete -c quorvane -f -a '(__fish_complete_path (commandline -ct) | string match -ri "
        "\"^([^\\t]*/|[^\\t]*\\.({}))(\\t.*)?\\$\" | string match -rv -- "
        "\"^[^\\t]*-leveled\\.\")'\n",
        audio_extensions("|"));
    for (const OptionRow& row : option_table()) {
        text += fmt::format("complete -c quorvane -l {}", row.name);
        if (row.letter) {
            text += fmt::format(" -s {}", row.letter);
        }
        const std::string words = words_of(row.completion);
        if (!words.empty()) {
            // -x: an argument is needed, and no files are offered; -r -F: needed, with files.
            text += fmt::format(" -x -a '{}'", words);
        } else if (row.completion == Completion::Directory) {
            text += " -x -a '(__fish_complete_directories)'";
        } else if (row.completion == Completion::File) {
            text += " -r -F";
        } else if (!row.argument.empty()) {
            text += " -x";
        }
        // In single quotes fish escapes a quote with a backslash alone.
        text += fmt::format(" -d {}\n", replace_all_copy(single_quoted(row.help), "'\\''", "\\'"));
    }
    return text;
}

}  // namespace quorvane
