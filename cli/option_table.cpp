#include "cli/option_table.h"

namespace cli {

const std::vector<OptionRow>& option_table() {
    using G = OptionGroup;
    using C = Completion;
    static const std::vector<OptionRow> table = {
        {G::Output, "suffix", 0, "TEXT", C::None,
         "text added to the output's name before the extension (default: -leveled)"},
        {G::Output, "output", 'o', "FILE", C::File, "name of the output, for exactly one input"},
        {G::Output, "output-dir", 'd', "DIR", C::Directory,
         "write below DIR, keeping the folders below each PATH"},
        {G::Output, "force", 'f', nullptr, C::None,
         "replace outputs that exist; without it such a file is skipped"},
        {G::Output, "keep-mtime", 0, nullptr, C::None,
         "give the output the modification time of its input"},

        {G::Work, "jobs", 'j', "N", C::None,
         "files worked on at the same time (default: the number of cores)"},
        {G::Work, "dry-run", 'n', nullptr, C::None,
         "say what would be read and written; touch nothing"},
        {G::Work, "analyze", 0, nullptr, C::None,
         "only measure: print the loudness table, write no audio"},
        {G::Work, "no-measure", 0, nullptr, C::None,
         "skip the loudness measurement before and after"},

        {G::Facts, "report", 0, "PATH", C::File,
         "write an HTML report; for several inputs PATH is a folder with an index page"},
        {G::Facts, "json", 0, "PATH", C::File,
         "write the facts as JSON, one object per line and file; - is the standard output"},

        {G::Display, "quiet", 'q', nullptr, C::None, "print errors only"},
        {G::Display, "verbose", 'v', nullptr, C::None, "print the engine's messages as well"},
        {G::Display, "color", 0, "WHEN", C::When, "use colors: auto, always or never"},
        {G::Display, "progress", 0, "WHEN", C::When, "show progress bars: auto, always or never"},

        {G::Tuning, "segment-tolerance", 0, "TEXT", C::None,
         "threshold of fit (0=no threshold) (default: 3.5)"},
        {G::Tuning, "segment-min-segment-length", 0, "N", C::None,
         "minimum segment length, in bins (default: 20)"},
        {G::Tuning, "segment-max-breakpoints", 0, "N", C::None,
         "maximum number of breakpoints (0=no max) (default: 30)"},
        {G::Tuning, "segment-chunk-size", 0, "N", C::None,
         "chunk size for processing in pieces (0=no chunking) (default: 2400)"},
        {G::Tuning, "segment-cost-function", 0, "NAME", C::CostFunction,
         "cost function, SSD0 or MSD0 (default: SSD0)"},
        {G::Tuning, "reduce-loud-level-diff", 0, "DB", C::None,
         "maximum level above mean in dB (default: 3.0)"},
        {G::Tuning, "reduce-loud-attack", 0, "MS", C::None, "attack in ms (default: 0)"},
        {G::Tuning, "reduce-loud-release", 0, "MS", C::None, "release in ms (default: 150)"},
        {G::Tuning, "reduce-loud-noise-floor", 0, "DB", C::None,
         "noise floor in dB (default: -44.0)"},
        {G::Tuning, "calc-rms-floor-noise_threshold", 0, "LEVEL", C::None,
         "noise threshold, linear (default: 0.006)"},
        {G::Tuning, "calc-rms-floor-gains_file", 0, "FILE", C::File,
         "accepted by the engine and not used"},
        {G::Tuning, "calc-rms-floor-rms_file", 0, "FILE", C::File,
         "accepted by the engine and not used"},
        {G::Tuning, "calc-rms-floor-gain_limit", 0, "DB", C::None,
         "limit maximum gain to this value in dB (default: 24.0)"},
        {G::Tuning, "bin-size", 's', "MS", C::None, "bin size in ms (default: 50)"},
        {G::Tuning, "options-file", 0, "FILE", C::File, "file of name=value lines for the engine"},
        {G::Tuning, "bit-depth", 'b', "BITS", C::BitDepth,
         "bit depth of the output: 8, 16, 24, 32, or 0 for the input's (default: 0)"},

        {G::Other, "help", 'h', nullptr, C::None, "show this help and leave"},
        {G::Other, "version", 0, nullptr, C::None, "show the version and leave"},
    };
    return table;
}

const char* title(OptionGroup group) {
    switch (group) {
        case OptionGroup::Output:
            return "Outputs";
        case OptionGroup::Work:
            return "Work";
        case OptionGroup::Facts:
            return "Facts about a run";
        case OptionGroup::Display:
            return "Display";
        case OptionGroup::Tuning:
            return "Tuning, passed to the engine as given";
        case OptionGroup::Other:
            return "Other";
    }
    return "";
}

const std::vector<OptionGroup>& option_groups() {
    static const std::vector<OptionGroup> groups = {OptionGroup::Output, OptionGroup::Work,
                                                    OptionGroup::Facts,  OptionGroup::Display,
                                                    OptionGroup::Tuning, OptionGroup::Other};
    return groups;
}

std::vector<const char*> choices(Completion completion) {
    switch (completion) {
        case Completion::When:
            return {"auto", "always", "never"};
        case Completion::BitDepth:
            return {"0", "8", "16", "24", "32"};
        case Completion::CostFunction:
            return {"SSD0", "MSD0"};
        default:
            return {};
    }
}

}  // namespace cli
