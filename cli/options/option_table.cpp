#include "cli/options/option_table.h"

#include "Common/CommandLine.h"
#include "leveling/advice/advice_table.h"
#include "leveling/facts/destinations.h"

/*
 * The rows of this program are here; those of the engine come from the engine's own table, so that
 * a tuning option, its help and its default are written once.
 */

namespace quorvane {

namespace {

/** In the order in which the help and the manual page list them. */
std::vector<OptionRow> own_options() {
    using G = OptionGroup;
    using C = Completion;
    return {
        // What most calls need.
        {G::First, "for", 0, "TARGET", C::Destination,
         "match a delivery target (loudness and true peak) with a gain and a true-peak limiter: " +
             listed_destinations() +
             ", or a target of your own such as "
             "lufs=-18:tp=-1.5 (-40 to -5 LUFS within 0.5, true peak -20 to 0 dBTP); with "
             "--analyze check only, several targets too (podcast,spotify)"},
        {G::First, "output", 'o', "FILE", C::File,
         "name of the output, for exactly one input; - is the standard output"},
        {G::First, "output-dir", 'd', "DIR", C::Directory,
         "write below DIR, keeping the folders below each PATH"},
        {G::First, "force", 'f', "", C::None, "replace any file that has an output's name"},
        {G::First, "analyze", 0, "", C::None,
         "only measure: print the loudness table, write no audio"},
        {G::First, "dry-run", 'n', "", C::None,
         "list what would be read and written; write nothing"},
        {G::First, "report", 0, "PATH", C::File,
         "write an HTML report; for several inputs PATH is a folder with an index page"},

        // The outputs' names, and what happens to those of earlier runs.
        {G::Output, "suffix", 0, "TEXT", C::None,
         "text added to the output's name before the extension (default: -leveled)"},
        {G::Output, "keep-top", 0, "", C::None,
         "with --output-dir: add a folder below DIR for each PATH, named after the PATH (for a "
         "file: after its folder)"},
        {G::Output, "redo-changed", 0, "", C::None,
         "level again, and replace the old output, where the input, the options or the program's "
         "arithmetic changed"},
        {G::Output, "verify", 0, "", C::None,
         "compare the contents of finished outputs and their inputs with the record, not only "
         "sizes and times; a difference is a failure"},
        {G::Output, "keep-mtime", 0, "", C::None,
         "give the output the modification time of its input"},
        {G::Output, "audio-stream", 0, "N", C::None,
         "audio stream to level in a video or other media file: its number, or all (default: "
         "the stream that the file marks as its default)"},
        {G::Output, "audio-codec", 0, "NAME", C::None,
         "codec for the leveled audio of a video or other media file (default: the input's)"},

        // What is read, in which way it is leveled, and how the work is divided.
        {G::Work, "target", 0, "TARGET", C::Destination, "the same as --for"},
        {G::Work, "channels", 0, "USE", C::Channels,
         "what a file's channels are to each other: tracks (a microphone for each voice), dialogue "
         "(in the centre channel), curve (one sound), each (nothing); default: by what the file "
         "says and holds; of stereo files: one sound"},
        {G::Work, "together", 0, "", C::None,
         "the PATHs are the tracks of one conversation, one for each voice, or folders with one "
         "conversation each: level each voice by its own turns, and lower what it leaves in the "
         "other tracks"},
        {G::Work, "mix", 0, "FILE", C::File,
         "with --together: also write the sum of the leveled tracks, for the delivery target of "
         "--for where one is named; of several conversations one each, beside its tracks"},
        {G::Work, "align", 0, "", C::None,
         "with --together: let all leveled tracks begin and end with the mix, where their "
         "recorders began at other times or drift"},
        {G::Work, "separate", 0, "", C::None,
         "level every file by itself, also files that look like tracks of one conversation"},
        {G::Work, "plain", 0, "", C::None,
         "level with the engine alone, which gives the samples of version 3.0: without preparation "
         "and without dither"},
        {G::Work, "jobs", 'j', "N", C::None,
         "files processed at the same time (default: the number of cores)"},
        {G::Work, "strict", 0, "", C::None,
         "fail every file that is cut short or damaged, also one that has lost less than 5 % and "
         "would be leveled with a note; exit with status 4 if a problem was found"},
        {G::Work, "salvage", 0, "", C::None,
         "level what is left of a damaged file that has lost 5 % or more (default: it fails)"},
        {G::Work, "files-from", 0, "FILE", C::File,
         "read the PATHs from FILE, one a line; - is the standard input"},
        {G::Work, "null", '0', "", C::None,
         "with --files-from and --failed: a null byte ends each PATH"},
        {G::Work, "plan", 0, "FILE", C::File,
         "process what the JSON of a dry run lists (--dry-run --json FILE); PATHs are not "
         "searched"},
        {G::Work, "shard", 0, "I/N", C::None,
         "process part I (0 to N-1) of N parts of about equal size"},
        {G::Work, "max-failures", 0, "N", C::None,
         "start no more files after N have failed (default: no limit)"},
        {G::Work, "settle", 0, "SECONDS", C::None,
         "in a folder search, leave files that changed less than SECONDS ago (0 to 60, "
         "default: 2) for the end, and wait for them up to a minute; 0: do not wait; with --watch: "
         "how long a file must stay unchanged where the kernel reports no close"},
        {G::Work, "no-measure", 0, "", C::None, "skip the loudness measurement before and after"},
        {G::Work, "watch", 0, "DIR", C::Directory,
         "level the recordings of DIR as they arrive, until SIGTERM or Ctrl-C; SIGHUP opens the "
         "log again"},
        {G::Work, "on-done", 0, "PROGRAM", C::File,
         "with --watch: run PROGRAM for each finished file, without arguments; the result is in "
         "its environment (QUORVANE_OUTPUT and others)"},

        // What is written besides the audio.
        {G::Facts, "no-listen", 0, "", C::None, "leave the audio excerpts out of the report"},
        {G::Facts, "json", 0, "PATH", C::File,
         "write the results as JSON, one line per file; - is the standard output"},
        {G::Facts, "csv", 0, "FILE", C::File,
         "write a table for spreadsheets, a row per input (RFC 4180, UTF-8)"},
        {G::Facts, "no-curves", 0, "", C::None,
         "leave the curves over time, most of its size, out of the JSON"},
        {G::Facts, "failed", 0, "FILE", C::File,
         "write the inputs that failed to FILE, as --files-from reads them (with --null as well)"},
        {G::Facts, "metrics", 0, "FILE", C::File,
         "with --watch: keep counts for monitoring in FILE, in the format of the node exporter"},
        {G::Facts, "log", 0, "FILE", C::File, "append every line, with its time, to FILE"},

        // What the terminal shows. The results do not depend on it.
        {G::Display, "quiet", 'q', "", C::None, "print errors only"},
        {G::Display, "verbose", 'v', "", C::None, "print the engine's messages as well"},
        {G::Display, "color", 0, "WHEN", C::When, "use colors: auto, always or never"},
        {G::Display, "progress", 0, "WHEN", C::When, "show progress bars: auto, always or never"},

        // All but --no-config print an answer and exit.
        {G::Other, "explain", 0, "[CODE]", C::Finding,
         "explain a finding: what it means, why it matters, what to do now and before the next "
         "recording; without CODE list all findings"},
        {G::Other, "show-config", 0, "", C::None,
         "show the options in effect for these PATHs and where each was set, and exit"},
        {G::Other, "no-config", 0, "", C::None,
         "ignore every quorvane.conf, of the system, the user and the folder"},
        {G::Other, "help", 'h', "", C::None, "show this help and exit"},
        {G::Other, "version", 0, "", C::None, "show the version and exit"},
    };
}

/** The engine's table in this program's form, and the two options that it has besides it. */
std::vector<OptionRow> tuning_rows() {
    std::vector<OptionRow> rows;
    int count = 0;
    const TuningOption* options = tuning_options(count);
    for (int i = 0; i < count; ++i) {
        std::string name = options[i].names;
        // The engine writes "name,letter", as its parser wants it.
        char letter = 0;
        if (const std::size_t comma = name.find(','); comma != std::string::npos) {
            letter = name[comma + 1];
            name.erase(comma);
        }
        // The only tuning option whose value is a word; all others take numbers.
        const bool cost = name == "segment-cost-function";
        rows.push_back({OptionGroup::Tuning, name, letter, "VALUE",
                        cost ? Completion::CostFunction : Completion::None,
                        std::string(options[i].help) + ", default " + options[i].default_text});
    }
    // Not in the engine's table, but options of its parser.
    rows.push_back({OptionGroup::Tuning, "options-file", 0, "FILE", Completion::File,
                    "file with a line name=value for each tuning option"});
    rows.push_back({OptionGroup::Tuning, "bit-depth", 'b', "BITS", Completion::BitDepth,
                    "bit depth of the output: 8, 16, 24, 32, or 0 for the input's, default 0"});
    return rows;
}

}  // namespace

const std::vector<OptionRow>& option_table() {
    // Made once: the parser, the help, the manual page and three shells read it.
    static const std::vector<OptionRow> table = [] {
        std::vector<OptionRow> rows = own_options();
        const std::vector<OptionRow> tuning = tuning_rows();
        rows.insert(rows.end(), tuning.begin(), tuning.end());
        return rows;
    }();
    return table;
}

// The headings of --help and of the manual page.
const char* title(OptionGroup group) {
    switch (group) {
        case OptionGroup::First:
            return "Most used";
        case OptionGroup::Output:
            return "Outputs";
        case OptionGroup::Work:
            return "Inputs and processing";
        case OptionGroup::Facts:
            return "Reports and results";
        case OptionGroup::Display:
            return "Display";
        case OptionGroup::Tuning:
            return "Tuning, passed to the engine as given";
        case OptionGroup::Other:
            return "Other";
    }
    // Reached only with a value outside of the enumeration.
    return "";
}

// The order of the sections in --help and in the manual page.
const std::vector<OptionGroup>& option_groups() {
    static const std::vector<OptionGroup> groups = {
        OptionGroup::First,   OptionGroup::Output, OptionGroup::Work, OptionGroup::Facts,
        OptionGroup::Display, OptionGroup::Tuning, OptionGroup::Other};
    return groups;
}

// The values come from the code that reads them, where there is such a table.
std::vector<const char*> choices(Completion completion) {
    switch (completion) {
        case Completion::When:
            return {"auto", "always", "never"};
        case Completion::BitDepth:
            // Bits a sample; 0 takes the input's.
            return {"0", "8", "16", "24", "32"};
        case Completion::CostFunction:
            return {"SSD0", "MSD0"};
        case Completion::Channels:
            return {"tracks", "dialogue", "curve", "each"};
        case Completion::Destination: {
            std::vector<const char*> words;
            for (const Destination& destination : destinations()) {
                words.push_back(destination.word.c_str());
                // Some targets have a second word, which is offered as well.
                if (!destination.also.empty()) {
                    words.push_back(destination.also.c_str());
                }
            }
            return words;
        }
        case Completion::Finding: {
            std::vector<const char*> codes;
            for (const Advice& advice : advice_table()) {
                codes.push_back(advice.code);
            }
            return codes;
        }
        // Files, folders and free text have no list.
        default:
            return {};
    }
}

}  // namespace quorvane
