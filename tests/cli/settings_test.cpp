#include "cli/options/settings.h"

#include <gmock/gmock.h>

#include "cli/options/help.h"
#include "cli/options/option_documents.h"
#include "cli/options/option_table.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace quorvane {
namespace {

Settings parse(std::vector<const char*> words) {
    words.insert(words.begin(), "quorvane");
    return parse_command_line(static_cast<int>(words.size()), words.data());
}

TEST(Settings, TuningOptionsReachTheEngineAsGiven) {
    const Settings settings =
        parse({"--segment-tolerance", "3", "-b", "24", "--bin-size=50", "--reduce-loud-noise-floor",
               "-40", "--suffix", "", "-d", "out", "talk.wav"});
    EXPECT_THAT(settings.tuning,
                testing::UnorderedElementsAre("--segment-tolerance=3", "--bit-depth=24",
                                              "--bin-size=50", "--reduce-loud-noise-floor=-40"));
    EXPECT_THAT(settings.paths, ElementsAre("talk.wav"));
    EXPECT_EQ(settings.suffix, "") << "empty is a value";
}

TEST(Settings, TheShardIsReadStrictly) {
    const auto parse_shard = [](const std::string& word) {
        const std::string option = "--shard=" + word;
        return parse({option.c_str(), "in.wav"}).shard;
    };
    EXPECT_EQ(3u, parse_shard("3/40").index);
    EXPECT_EQ(40u, parse_shard("3/40").count);
    for (const char* wrong :
         {"", "3", "4/4", "0/0", "-1/4", "1/4x", "1/", "/4", "1 /4", "0/4000000000"}) {
        EXPECT_THROW(parse_shard(wrong), UsageError) << wrong;
    }
}

TEST(Settings, WrongUsageNamesTheOption) {
    struct Row {
        std::vector<const char*> words;
        const char* message;
    };

    const Row rows[] = {
        {{}, "name at least one file or folder"},
        {{"--nonsense", "x.wav"}, "--nonsense"},
        {{"--reprt", "r.html", "x.wav"}, "'--reprt' (did you mean --report?)"},
        {{"--Analyse=1", "x.wav"}, "(did you mean --analyze?)"},
        {{"--for", "x.wav"}, "--for"},
        {{"-j", "0", "x.wav"}, "--jobs takes a number from 1 to 256, not '0'"},
        {{"-j", "two", "x.wav"}, "not 'two'"},
        {{"--color", "maybe", "x.wav"}, "--color takes auto, always or never, not 'maybe'"},
        {{"-o", "a.wav", "-d", "out", "x.wav"}, "exclude each other"},
        {{"--watch", "in", "-d", "out", "--together"}, "--watch and --together exclude each other"},
        {{"--suffix", "", "x.wav"}, "--suffix"},
        {{"--suffix", "a/b", "x.wav"}, "'/'"},
        {{"--analyze", "--no-measure", "x.wav"}, "--analyze"},
        {{"--report", "r.html", "--no-measure", "x.wav"}, "--report"},
        {{"-q", "-v", "x.wav"}, "--quiet"},
        {{"-o", "", "x.wav"}, "--output"},
        {{"-o", "a.wav", "-o", "b.wav", "x.wav"}, "--output"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.message);
        try {
            parse(row.words);
            ADD_FAILURE() << "was accepted";
        } catch (const UsageError& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.message));
        }
    }
}

TEST(Help, BeginsWithExamplesAndTheMostUsedOptions) {
    const std::string help = help_text();
    const char* in_order[] = {"  quorvane talk.wav ",  "  quorvane --for podcast",
                              "  quorvane --analyze",  "Usage: quorvane [options] PATH...",
                              "quorvane merge --help", "Most used:",
                              "--output-dir",          "Outputs:",
                              "--options-file",        "Exit status: 0"};
    std::size_t at = 0;
    for (const char* text : in_order) {
        at = help.find(text, at);
        ASSERT_NE(std::string::npos, at) << text;
    }
    const std::string merge = merge_help_text();
    EXPECT_THAT(merge, HasSubstr("Usage: quorvane merge RESULTS..."));
    EXPECT_THAT(merge, HasSubstr("--report PATH"));
    EXPECT_THAT(merge, Not(HasSubstr("--output-dir"))) << "a merge levels nothing";
}

TEST(OptionTable, EveryDocumentNamesEveryOption) {
    const std::string fish = fish_completion();
    std::string man = man_options();
    man.erase(std::remove(man.begin(), man.end(), '\\'), man.end());
    const std::string documents[] = {bash_completion(), zsh_completion(), man, help_text()};
    for (const OptionRow& row : option_table()) {
        SCOPED_TRACE(row.name);
        EXPECT_THAT(documents, testing::Each(HasSubstr("--" + row.name)));
        EXPECT_THAT(fish, HasSubstr("-l " + row.name));
    }
    EXPECT_THAT(fish, HasSubstr("-l color -x -a 'auto always never'"));
}

}  // namespace
}  // namespace quorvane
