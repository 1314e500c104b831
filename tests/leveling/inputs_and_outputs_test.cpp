#include <gmock/gmock.h>

#include <boost/algorithm/string/replace.hpp>
#include <filesystem>

#include "leveling/inputs/find_files.h"
#include "leveling/inputs/plan.h"
#include "leveling/inputs/run_file_check.h"
#include "leveling/report/html.h"
#include "leveling/report/result_files.h"
#include "leveling/storage/staged_output.h"
#include "tests/support/fixtures.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace quorvane {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
  protected:
    std::string make(const std::string& name, const std::string& text = "x") {
        fs::create_directories(fs::path(dir_ / name).parent_path());
        write_text(dir_ / name, text);
        return dir_ / name;
    }

    std::vector<std::string> found(const std::vector<std::string>& names = {""},
                                   const std::string& suffix = "-leveled",
                                   const std::string& output_dir = "") {
        std::vector<std::string> paths;
        for (const std::string& name : names) {
            paths.push_back(dir_ / name);
        }
        result_ = find_files(paths, {suffix, output_dir});
        std::vector<std::string> below;
        for (const FoundFile& file : result_.files) {
            below.push_back(fs::path(file.path).lexically_relative(dir_.path()).string());
        }
        return below;
    }

    // The output of each input below the folder, or the refusal.
    std::string planned(const Request& request, const std::vector<std::string>& names = {""}) {
        found(names, request.suffix);
        std::string text;
        try {
            const std::vector<PlannedFile> plan = plan_outputs(request, result_.files);
            check_run_files(request, plan);
            for (const PlannedFile& file : plan) {
                text += (file.skip.empty() ? "" : "skip ") +
                        fs::path(file.output).lexically_relative(dir_.path()).string() + " ";
            }
        } catch (const UsageError& error) {
            text = error.what();
        }
        return text;
    }

    TempDir dir_;
    FoundFiles result_;
};

TEST_F(Files, AFolderGivesItsMediaByNameOrContentAndNamesTheRest) {
    make("phone.m4a");
    make("clip.MKV");
    make("renamed.dat", std::string("\0\0\0\x18"
                                    "ftypmp42",
                                    12));
    make("photo.heic", std::string("\0\0\0\x18"
                                   "ftypheic",
                                   12));
    make("old.flv");
    make("voice.bin", "#!AMR\n");
    make("program.ts", "const x = 1;");
    make("camera.ts", "G" + std::string(187, 'x') + "G");
    make("old-leveled.flv");
    EXPECT_THAT(found(), ElementsAre("clip.MKV", "phone.m4a", "renamed.dat"));
    EXPECT_THAT(result_.unsupported,
                ElementsAre(dir_ / "camera.ts", dir_ / "old.flv", dir_ / "voice.bin"));
}

TEST_F(Files, AFolderGivesItsAudioSortedWithoutHiddenFilesAndOutputs) {
    for (const char* name :
         {"b.wav", "a/two.FLAC", "a/one.aiff", "c.mp3", "notes.txt", "._b.wav", ".hidden/x.wav",
          "b-leveled.wav", "a/-leveled.wav", "noextension", "wav"}) {
        make(name);
    }
    EXPECT_THAT(found(), ElementsAre("a/one.aiff", "a/two.FLAC", "b.wav", "c.mp3"));
    EXPECT_THAT(found({"b-leveled.wav"}), ElementsAre("b-leveled.wav")) << "it was named";
    EXPECT_THAT(found({""}, ""), testing::Contains("b-leveled.wav"));
    EXPECT_THAT(found({""}, "", dir_ / "a"), testing::Not(testing::Contains("a/one.aiff")));
}

TEST_F(Files, LinksAreFollowedAndEachFileIsTakenOnceUnderItsOwnPath) {
    make("real/talk.wav");
    make("outside.wav");
    fs::create_directory_symlink("..", dir_ / "real/loop");
    fs::create_directory_symlink("real", dir_ / "alias");
    fs::create_symlink("real/talk.wav", dir_ / "zz.wav");
    EXPECT_THAT(found({"real", "real/talk.wav"}),
                ElementsAre("real/loop/outside.wav", "real/talk.wav"))
        << "through the loop the search reaches the folder above";
    fs::remove(dir_ / "real/loop");
    fs::create_symlink("real/talk.wav", dir_ / "aa.wav");
    EXPECT_THAT(found(), ElementsAre("outside.wav", "real/talk.wav"));
    EXPECT_THAT(found({"aa.wav", "real"}), ElementsAre("real/talk.wav"));
    ASSERT_EQ(1u, result_.passed_over.size());
    EXPECT_EQ(dir_ / "aa.wav", result_.passed_over[0].path);
    EXPECT_EQ("is a link to " + dir_ / "real/talk.wav", result_.passed_over[0].cause);
}

TEST_F(Files, WhatCannotBeReadIsTold) {
    fs::create_directory(dir_ / "empty");
    fs::create_symlink("nowhere.wav", dir_ / "dangling.wav");
    found({"missing.wav", "empty", ""});
    const auto cause = [](const char* text) { return testing::Field(&SearchProblem::cause, text); };
    EXPECT_THAT(result_.problems,
                ElementsAre(cause("does not exist"), cause("holds no audio file to level"),
                            cause("cannot be followed: the link leads nowhere")));
}

TEST_F(Files, OutputsStandBesideTheInputsOrBelowTheFolder) {
    make("season/a/x.wav");
    make("season/y.tar.flac");
    EXPECT_EQ(planned({}), "season/a/x-leveled.wav season/y.tar-leveled.flac ");
    Request request;
    request.output_dir = dir_ / "out";
    request.suffix = "";
    EXPECT_EQ(planned(request, {"season"}), "out/a/x.wav out/y.tar.flac ");
    make("out/a/x.wav");
    EXPECT_EQ(planned(request, {"season"}), "out/a/x.wav out/y.tar.flac ");
    request.force = true;
    EXPECT_EQ(planned(request, {"season"}), "out/a/x.wav out/y.tar.flac ");
}

TEST_F(Files, OutputsThatCannotBeAreRefusedBeforeAnyWork) {
    const std::string x = make("x.wav");
    make("x-leveled.wav");
    make("sub/x.wav");
    fs::create_hard_link(x, dir_ / "hard.wav");
    fs::create_symlink("x.wav", dir_ / "soft.wav");
    fs::create_directory(dir_ / "folder.wav");
    Request named;
    named.force = true;
    const auto planned_as = [&](const char* output) {
        named.output = dir_ / output;
        return planned(named, {"x.wav"});
    };
    EXPECT_EQ(planned_as("y.wave"), "y.wave ");
    EXPECT_THAT(planned(named, {"x.wav", "sub/x.wav"}), HasSubstr("names one file"));
    EXPECT_THAT(planned_as("y.flac"), HasSubstr("must end in .wav"));
    EXPECT_THAT(planned_as("folder.wav"), HasSubstr("--output-dir"));
    for (const char* output : {"./sub/../x.wav", "hard.wav", "soft.wav"}) {
        EXPECT_THAT(planned_as(output), HasSubstr("is an input")) << output;
    }
}

TEST_F(Files, OutputsAmongTheInputsArePassedOver) {
    for (const char* name : {"a.wav", "a-leveled.wav", "b-leveled.wav", "out/a.wav"}) {
        make(name);
    }
    const std::vector<std::string> all = {"a.wav", "a-leveled.wav", "b-leveled.wav"};
    EXPECT_EQ("a-leveled.wav b-leveled-leveled.wav skip  ", planned({}, all));
    Request into;
    into.output_dir = dir_ / "out";
    EXPECT_EQ("out/a-leveled.wav out/b-leveled-leveled.wav skip  ", planned(into, all));
    into.suffix = "";
    into.force = true;
    EXPECT_EQ("out/a.wav skip  ", planned(into, {"a.wav", "out/a.wav"}));
    // A link to an input does not count as an output.
    fs::remove(dir_ / "a-leveled.wav");
    fs::create_symlink("b-leveled.wav", dir_ / "a-leveled.wav");
    EXPECT_THAT(planned(Request(), {"a.wav", "b-leveled.wav"}),
                HasSubstr("same file as the input"));
}

TEST_F(Files, ReportsAndJsonReplaceOnlyTheirOwnKind) {
    const std::string x = make("x.wav");
    const std::string other = make("letter.txt", "Dear all");
    const std::string page = make("old.html", kReportStart);
    const std::string facts = make("old.json", "{}");
    found({"x.wav"});
    const auto refused = [&](const std::string& report, const std::string& json,
                             std::size_t inputs) {
        Request request;
        request.report = report;
        request.json = json;
        try {
            check_run_files(request, plan_outputs(request, result_.files));
            check_facts_paths(request, inputs);
            return false;
        } catch (const UsageError&) {
            return true;
        }
    };
    EXPECT_FALSE(refused(page, facts, 1));
    EXPECT_FALSE(refused(dir_ / "new.html", "-", 1));
    EXPECT_TRUE(refused(page, "", 2)) << "several inputs need a folder";
    EXPECT_TRUE(refused(other, "", 1));
    EXPECT_TRUE(refused("", other, 1));
    EXPECT_TRUE(refused(x, "", 1));
    EXPECT_TRUE(refused("", dir_ / "x-leveled.wav", 1));
    const auto log_refused = [&](const std::string& name) {
        Request request;
        request.log = dir_ / name;
        try {
            check_facts_paths(request, 1);
            return false;
        } catch (const UsageError&) {
            return true;
        }
    };
    make("foreign.wav", std::string("RIFF\0\0\0\0WAVE", 12));
    EXPECT_FALSE(log_refused("letter.txt") || log_refused("new.log"));
    EXPECT_TRUE(log_refused("foreign.wav"));
    EXPECT_TRUE(log_refused("."));
}

// Two inputs with their outputs, a skipped recording, and whatever the row adds.
class RunFilesOf : public Files {
  protected:
    RunFilesOf() {
        for (const char* name : {"a.wav", "b.wav", "old-leveled.wav", "list", "options", "plan"}) {
            make(name);
        }
        fs::create_symlink("a.wav", dir_ / "link");
        fs::create_hard_link(dir_ / "a.wav", dir_ / "hard");
        fs::create_symlink("a-leveled.wav", dir_ / "dangling");
        fs::create_directory(dir_ / "pages");
        make("pages/b.wav.html");
        request_.files_from = dir_ / "list";
        request_.plan = dir_ / "plan";
        request_.tuning = {"--bin-size=50", "--options-file=" + dir_ / "options"};
        files_ = {{dir_ / "a.wav", dir_ / "a-leveled.wav", {}, {}},
                  {dir_ / "b.wav", dir_ / "b-leveled.wav", {}, {}},
                  {dir_ / "missing.wav", {}, {}, {}},
                  {dir_ / "old-leveled.wav", {}, "is an output", {}}};
    }

    // The refusal without this folder's name, or "".
    std::string refusal(const std::vector<std::string>& results = {}) {
        try {
            check_run_files(request_, files_, results);
            return "";
        } catch (const UsageError& error) {
            return boost::replace_all_copy<std::string>(error.what(), dir_.path() + "/", "");
        }
    }

    Request request_;
    std::vector<PlannedFile> files_;
};

TEST_F(RunFilesOf, NothingThatIsWrittenIsAnotherFileOfTheRun) {
    EXPECT_EQ("", refusal());
    const std::pair<const char*, const char*> rows[] = {
        {"a.wav", "the input a.wav; what a run reads is never written to"},
        {"./pages/../a.wav", "the input a.wav"},
        {"link", "the input a.wav"},
        {"hard", "the input a.wav"},
        {"missing.wav", "the input missing.wav"},
        {"old-leveled.wav", "the recording old-leveled.wav"},
        {"b-leveled.wav", "the output b-leveled.wav; each needs a file of its own"},
        {"dangling", "the output a-leveled.wav"},
        {"list", "--files-from list"},
        {"options", "--options-file options"},
        {"plan", "--plan plan"},
        {"results", "the results results"}};
    for (auto option : {&Request::log, &Request::json, &Request::csv, &Request::report}) {
        for (const auto& [path, other] : rows) {
            request_.*option = dir_ / path;
            EXPECT_THAT(refusal({dir_ / "results"}),
                        HasSubstr(std::string(path) + " is the same file as " + other));
        }
        request_.*option = "";
    }
    request_.log = dir_ / ".quorvane.jsonl";
    EXPECT_THAT(refusal(), HasSubstr("the record .quorvane.jsonl is the same file as --log"));
    request_.log = request_.json = "/dev/null";
    EXPECT_EQ("", refusal()) << "devices hold nothing that is lost";
    request_.log = request_.json = dir_ / "new";
    EXPECT_THAT(refusal(), HasSubstr("--json new is the same file as --log new"));
    request_.json = "-";
    EXPECT_EQ("", refusal());
    request_.report = dir_ / "pages";
    EXPECT_EQ("", refusal());
    files_.push_back({dir_ / "c.wav", dir_ / "pages/../c-leveled.wav", {}, {}});
    EXPECT_EQ("", refusal()) << "one record of a folder that is spelled in two ways";
    files_.push_back({dir_ / "pages/b.wav.html", {}, {}, {}});
    EXPECT_THAT(refusal(), HasSubstr("--report would write its pages where the input"));
}

TEST_F(RunFilesOf, NoOutputIsAnInputOrAnotherOutput) {
    const auto with_output = [&](const char* output) {
        files_[0].output = dir_ / output;
        return refusal();
    };
    for (const char* output : {"a.wav", "b.wav", "link", "hard", "list", "missing.wav"}) {
        EXPECT_THAT(with_output(output), HasSubstr("is the same file as")) << output;
    }
    EXPECT_THAT(with_output("b-leveled.wav"), HasSubstr("the same file as the output"));
    // Who saves space by links may have made one file of two equal outputs.
    make("b-leveled.wav");
    fs::create_hard_link(dir_ / "b-leveled.wav", dir_ / "same-leveled.wav");
    EXPECT_EQ("", with_output("same-leveled.wav"));
    EXPECT_EQ("", with_output("old-leveled.wav")) << "skipped as the output of another";
    fs::create_hard_link(dir_ / "b.wav", dir_ / ".quorvane.jsonl");
    EXPECT_THAT(refusal(), HasSubstr("the record .quorvane.jsonl is the same file as the input"));
}

TEST_F(Files, AnOutputAppearsWholeOrNotAtAll) {
    const std::string source = make("source", "new");
    const std::string target = make("deep/target.wav", "old");
    for (const bool force : {false, true}) {
        StagedOutput staged(target);
        staged.fill_from(source);
        EXPECT_EQ(read_text(target), "old");
        if (force) {
            staged.commit(Existing::Replace);
        } else {
            EXPECT_THROW(staged.commit(Existing::Keep), std::system_error);
        }
    }
    EXPECT_EQ(read_text(target), "new");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "deep"), {}), 1);
}

TEST_F(Files, OnlyAbandonedPartsAreSweptUp) {
    const std::string target = dir_ / "talk.wav";
    StagedOutput living(target);
    make(".talk.wav.quorvane-999-00000000.part");
    make(".other.wav.quorvane-999-00000000.part");
    remove_stale_parts(target);
    EXPECT_TRUE(file_exists(living.path())) << "it is locked by its writer";
    EXPECT_FALSE(file_exists(dir_ / ".talk.wav.quorvane-999-00000000.part"));
    EXPECT_TRUE(file_exists(dir_ / ".other.wav.quorvane-999-00000000.part"));
}

TEST_F(Files, KilledRunsLeaveNoPartsOfJsonAndReports) {
    Request request;
    request.json = dir_ / "facts.jsonl";
    request.report = dir_ / "pages";
    const StagedOutput living(dir_ / "pages/index.html");
    const std::string left = make("pages/.notes.txt.quorvane-999-00000000.part");
    make("pages/.old.wav.html.quorvane-999-00000000.part");
    make(".facts.jsonl.quorvane-999-00000000.part");
    make("pages/talk.wav.html", "a page of the user's");
    const auto no_excerpts = [](const FileFacts&) { return std::string(); };
    {
        ResultFiles results(request, 2, no_excerpts);
        FileFacts facts;
        facts.input = "talk.wav";
        facts.before.emplace();
        results.add(0, facts);
        facts.input = "other.wav";
        results.add(1, facts);
        results.commit();
        EXPECT_THAT(results.problems(), testing::IsEmpty());
    }
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_ / "pages")) {
        names.push_back(entry.path());
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre(living.path(), left, dir_ / "pages/index.html",
                                                     dir_ / "pages/talk.wav.html",
                                                     dir_ / "pages/talk.wav-2.html",
                                                     dir_ / "pages/other.wav.html"));
    EXPECT_EQ("a page of the user's", read_text(dir_ / "pages/talk.wav.html"));
    EXPECT_FALSE(file_exists(dir_ / ".facts.jsonl.quorvane-999-00000000.part"));
    request.report = dir_ / "one.html";
    make(".one.html.quorvane-999-00000000.part");
    { const ResultFiles results(request, 1, no_excerpts); }
    EXPECT_FALSE(file_exists(dir_ / ".one.html.quorvane-999-00000000.part"));
}

}  // namespace
}  // namespace quorvane
