#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <sstream>

#include "leveling/archive/bounded_lines.h"
#include "leveling/archive/content_hash.h"
#include "leveling/archive/file_list.h"
#include "leveling/archive/output_claim.h"
#include "leveling/archive/record.h"
#include "leveling/archive/result_lines.h"
#include "leveling/archive/shards.h"
#include "leveling/archive/up_to_date.h"
#include "leveling/request/request.h"
#include "leveling/storage/folders.h"
#include "tests/support/fixtures.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace quorvane {
namespace {

namespace fs = std::filesystem;

TEST(Shards, AreTheWholeInAnyOrderAndBalanced) {
    std::vector<ShardItem> items;
    std::int64_t largest = 0;
    for (std::int64_t i = 0; i < 500; ++i) {
        items.push_back({std::to_string(i), i * i * i * 7919 % 100'000'007});
        largest = std::max(largest, items.back().bytes + kBytesPerFile);
    }
    const std::vector<std::size_t> shard_of = cut_shards(items, 7);
    std::vector<std::int64_t> loads(7);
    for (std::size_t i = 0; i < items.size(); ++i) {
        loads.at(shard_of[i]) += items[i].bytes + kBytesPerFile;
    }
    const auto [least, most] = std::minmax_element(loads.begin(), loads.end());
    EXPECT_LE(*most - *least, largest);

    EXPECT_EQ(cut_shards(items, 501), cut_shards(items, 4'000'000'000)) << "one item each";
    std::vector<ShardItem> reversed(items.rbegin(), items.rend());
    std::vector<std::size_t> again = cut_shards(reversed, 7);
    std::reverse(again.begin(), again.end());
    EXPECT_EQ(shard_of, again);
}

class Archive : public testing::Test {
  protected:
    // What a run does to place an output.
    void place(const std::string& output, const std::string& text, const std::string& options) {
        write_text(dir_ / output, text);
        DoneRecord record;
        record.output = fs::path(output).filename().string();
        record.output_state = state_of(dir_ / output);
        record.output_hash = content_hash(dir_ / output);
        record.input = dir_ / "in.wav";
        record.input_state = state_of(dir_ / "in.wav");
        record.input_hash = content_hash(dir_ / "in.wav");
        record.options = options;
        record.facts.outcome = Outcome::Leveled;
        record.facts.elapsed_s = 1.5;
        OutputClaim claim;
        ASSERT_TRUE(claim.take(dir_ / output, "", WhenTaken::Leave));
        claim.record(to_line(record));
    }

    Judgement judge(const std::string& options = "o",
                    const std::string& output = "out.wav",
                    Proof proof = Proof::SizeAndTime) {
        return UpToDate(options, proof).judge(dir_ / "in.wav", dir_ / output);
    }

    void touch(const std::string& name) {
        fs::last_write_time(dir_ / name, fs::file_time_type::clock::now() + std::chrono::hours(1));
    }

    TempDir dir_;
};

TEST_F(Archive, AnOutputIsJudgedByWhatItWasMadeFrom) {
    write_text(dir_ / "in.wav", "input");
    EXPECT_EQ(OutputState::Missing, judge().state);
    place("out.wav", "output", "o");
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    EXPECT_EQ(1.5, judge().facts.elapsed_s);
    EXPECT_EQ(OutputState::Changed, judge("other").state);

    // A new time with the same content is not a change; other content of the same size is.
    touch("in.wav");
    touch("out.wav");
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    write_text(dir_ / "in.wav", "INPUT");
    touch("in.wav");
    EXPECT_EQ(OutputState::Changed, judge().state);
    EXPECT_THAT(judge().cause, HasSubstr("--redo-changed"));
    write_text(dir_ / "out.wav", "OUTPUT");
    touch("out.wav");
    EXPECT_EQ(OutputState::NotOurs, judge().state) << "it was edited";
    write_text(dir_ / "foreign.wav", "x");
    EXPECT_EQ(OutputState::NotOurs, judge("o", "foreign.wav").state);

    // A disk loses bits without a new time.
    place("out.wav", "output", "o");
    const auto time = fs::last_write_time(dir_ / "out.wav");
    EXPECT_EQ(OutputState::UpToDate, judge("o", "out.wav", Proof::Content).state);
    write_text(dir_ / "out.wav", "outpuT");
    fs::last_write_time(dir_ / "out.wav", time);
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    EXPECT_EQ(OutputState::Damaged, judge("o", "out.wav", Proof::Content).state);
    touch("out.wav");
    EXPECT_EQ(OutputState::NotOurs, judge().state);
    EXPECT_EQ(OutputState::Damaged, judge("o", "out.wav", Proof::Content).state);
    fs::remove(dir_ / "out.wav");
    place("out.wav", "output", "o");
    const auto input_time = fs::last_write_time(dir_ / "in.wav");
    write_text(dir_ / "in.wav", "INPUt");
    fs::last_write_time(dir_ / "in.wav", input_time);
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    EXPECT_THAT(judge("o", "out.wav", Proof::Content).cause, HasSubstr("content of the input"));
    EXPECT_EQ(OutputState::Damaged, judge("o", "out.wav", Proof::Content).state);

    // The folder goes elsewhere with its record.
    place("out.wav", "output", "o");
    fs::create_directory(dir_ / "moved");
    fs::copy(dir_ / "out.wav", dir_ / "moved/out.wav");
    fs::copy(dir_ / kRecordName, dir_ / std::string("moved/") + kRecordName);
    EXPECT_EQ(OutputState::UpToDate, judge("o", "moved/out.wav").state);
}

TEST_F(Archive, RecordsOfVersion3CountForPlainRunsAlone) {
    write_text(dir_ / "in.wav", "input");
    write_text(dir_ / "out.wav", "output");
    // A line as version 3.0 wrote it, on another day: the contents decide.
    write_text(dir_ / kRecordName,
               R"({"output":"out.wav","output_size":6,"output_mtime_ns":1,"output_hash":")" +
                   content_hash(dir_ / "out.wav") +
                   R"(","input":"/in.wav","input_size":5,"input_mtime_ns":1,"input_hash":")" +
                   content_hash(dir_ / "in.wav") +
                   R"(","options":"o","arithmetic":1,"done":"2026-11-21T05:21:00Z","facts":)"
                   R"({"input":"/in.wav","output":"/out.wav","status":"leveled","cause":null,)"
                   R"("notes":[],"elapsed_s":0.5}})"
                   "\n");

    struct Row {
        const char* name;
        Arithmetic arithmetic;
        const char* options;
        OutputState expected;
    };

    const Row rows[] = {
        {"plain", arithmetic_of(Way::Plain), "o", OutputState::UpToDate},
        {"prepared", arithmetic_of(Way::Prepared), "o", OutputState::Earlier},
        {"plain for a destination", arithmetic_of(Way::Plain, "podcast"), "o",
         OutputState::Earlier},
        {"other options", arithmetic_of(Way::Plain), "p", OutputState::Changed},
        {"other options, prepared", arithmetic_of(Way::Prepared), "p", OutputState::Changed},
        {"an older program", {"prepared", 0}, "o", OutputState::Changed},
    };
    const auto judged = [&](const Row& row) {
        return UpToDate(row.options, Proof::SizeAndTime, row.arithmetic)
            .judge(dir_ / "in.wav", dir_ / "out.wav")
            .state;
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.expected, judged(row)) << row.name;
    }
    // A record of this version knows its way: the other one is another option, and not earlier.
    place("out.wav", "output", "o");
    EXPECT_EQ(OutputState::UpToDate, judged(rows[1]));
    EXPECT_EQ(OutputState::Changed, judged(rows[0]));
}

TEST_F(Archive, ALineForAnOutputThatNeverCameVouchesForNothing) {
    write_text(dir_ / "in.wav", "input");
    place("out.wav", "old", "o");
    const std::string old = read_text(dir_ / "out.wav");
    place("out.wav", "new", "p");
    write_text(dir_ / "out.wav", old);  // killed before the new one took the name
    EXPECT_EQ(OutputState::UpToDate, judge("o").state);
    EXPECT_EQ(OutputState::Changed, judge("p").state);
}

TEST_F(Archive, TornAndDamagedLinesSpoilNoOther) {
    write_text(dir_ / "in.wav", "input");
    write_text(dir_ / kRecordName, "{\"output\":\"out.wav\",\"output_size\":6}\n{\"output\":\"ou");
    place("out.wav", "output", "o");
    place("n\xe9w\n\".wav", "other", "o");
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    EXPECT_EQ(OutputState::UpToDate, judge("o", "n\xe9w\n\".wav").state);
}

TEST_F(Archive, ARecordIsARegularFileOrNone) {
    write_text(dir_ / "in.wav", "input");
    write_text(dir_ / "out.wav", "output");
    write_text(dir_ / "elsewhere", "");
    const std::string record = dir_ / kRecordName;
    EXPECT_EQ("", record_problem(record));
    const auto expect_refused = [&](const char* kind) {
        EXPECT_THAT(record_problem(record), HasSubstr(kind));
        EXPECT_EQ(OutputState::NotOurs, judge().state) << "and nothing waits for a writer";
        OutputClaim claim;
        EXPECT_THROW(claim.take(dir_ / "out.wav", "", WhenTaken::Leave), std::runtime_error);
        fs::remove(record);
    };
    ASSERT_EQ(0, mkfifo(record.c_str(), 0600));
    expect_refused("is a pipe");
    fs::create_symlink("elsewhere", record);
    expect_refused("is a link");
    fs::create_directory(record);
    expect_refused("is a folder");
    EXPECT_EQ("", read_text(dir_ / "elsewhere"));
}

TEST_F(Archive, WhatHasNoLineEndsNeedsNoMemory) {
    write_text(dir_ / "in.wav", "input");
    write_text(dir_ / kRecordName, "");
    constexpr std::uintmax_t kHole = std::uintmax_t{400} << 20;
    fs::resize_file(dir_ / kRecordName, kHole);
    const auto most_kb = [] {
        struct rusage usage {};

        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;
    };
    const long before_kb = most_kb();
    place("out.wav", "output", "o");
    EXPECT_EQ(OutputState::UpToDate, judge().state);
    EXPECT_LT(most_kb() - before_kb, 100'000);

    std::istringstream text("one\ntoo long\n\nlast");
    BoundedLines lines(text, 4);
    std::string all;
    for (std::string line; lines.next(line);) {
        all += std::to_string(lines.offset()) + (lines.too_long() ? "!" : "=" + line) + " ";
    }
    EXPECT_EQ("0=one 4! 13= 14=last ", all);
    write_text(dir_ / "list", std::string(100'000, 'x'));
    EXPECT_THROW(read_file_list(dir_ / "list", ListSeparator::Null), UsageError);
}

TEST_F(Archive, ANewOutputIsFoundAtTheEndOfALongBook) {
    write_text(dir_ / "in.wav", "input");
    place("early.wav", "output", "o");
    // Lines of other outputs, more than a megabyte of them.
    std::string others;
    for (int i = 0; others.size() < 1'500'000; ++i) {
        others += "{\"output\":\"" + std::to_string(i) + std::string(1000, 'x') + ".wav\"}\n";
    }
    write_text(dir_ / kRecordName, read_text(dir_ / kRecordName) + others);
    place("late.wav", "output", "o");
    for (const char* output : {"early.wav", "late.wav"}) {
        EXPECT_EQ(OutputState::UpToDate, judge("o", output).state);
        EXPECT_EQ(OutputState::UpToDate,
                  UpToDate("o").judge_new(dir_ / "in.wav", dir_ / output).state);
    }
    RecordBook end(dir_ / kRecordName, RecordBook::Part::End);
    EXPECT_EQ(0u, end.find("early.wav").size());
    EXPECT_EQ(1u, end.find("late.wav").size());
}

TEST_F(Archive, OneAtATimeHasAnOutputAndNothingIsLeftOfAClaimForNothing) {
    OutputClaim one;
    OutputClaim two;
    const std::string a = dir_ / "new/folder/a.wav";
    const std::string made = missing_folder(a);
    EXPECT_EQ(dir_ / "new", made);
    ASSERT_TRUE(one.take(a, made, WhenTaken::Leave));
    EXPECT_FALSE(two.take(a, made, WhenTaken::Leave));
    ASSERT_TRUE(two.take(dir_ / "new/folder/b.wav", made, WhenTaken::Leave))
        << "its neighbour is free";
    one.release();
    EXPECT_TRUE(file_exists(dir_ / "new/folder")) << "another claim is in use there";
    two.release();
    EXPECT_THAT(dir_.entries(), IsEmpty());
}

TEST_F(Archive, OptionsCountByWhatTheyMean) {
    write_text(dir_ / "one", "segment-tolerance=3\n");
    write_text(dir_ / "two", "segment-tolerance=4\n");
    const auto key = [&](const char* file) {
        return options_key({"--options-file=" + dir_ / file}, true);
    };
    EXPECT_NE(key("one"), key("two"));
    write_text(dir_ / "two", "segment-tolerance=3\n");
    EXPECT_EQ(key("one"), key("two"));
    EXPECT_THROW(key("none"), std::system_error);
    EXPECT_NE(options_key({}, true), options_key({}, false));
    EXPECT_EQ("podcast", destination_in(options_key({"--x=1"}, true, 2, "aac", "podcast")));
    EXPECT_EQ("", destination_in(options_key({"--x=1"}, false, 2, "aac")));
    EXPECT_EQ("", destination_in(options_key({}, true)));
}

TEST_F(Archive, AnOutputOfOursForAnotherPlaceIsToBeMadeAgain) {
    write_text(dir_ / "in.wav", "input");
    const auto key = [](const char* place, const char* option = "--x=1") {
        return options_key({option}, true, 0, "", place);
    };

    const struct {
        std::string made, asked;
        OutputState state;
    } rows[] = {{key(""), key("podcast"), OutputState::Outdated},
                {key("atsc"), key("podcast"), OutputState::Outdated},
                {key("podcast"), key("podcast"), OutputState::UpToDate},
                {key("podcast"), key(""), OutputState::Changed},
                {key("podcast"), key("podcast", "--x=2"), OutputState::Changed}};

    for (const auto& row : rows) {
        place("out.wav", "output", row.made);
        EXPECT_EQ(row.state, judge(row.asked).state) << row.made << " " << row.asked;
    }
    write_text(dir_ / "out.wav", "edited");
    EXPECT_EQ(OutputState::NotOurs, judge(key("atsc")).state);
}

TEST_F(Archive, ListsHoldAnyName) {
    write_text(dir_ / "lines", "a b.wav\n\nc.wav");
    EXPECT_THAT(read_file_list(dir_ / "lines", ListSeparator::LineEnd),
                ElementsAre("a b.wav", "c.wav"));
    write_text(dir_ / "nulls", std::string("a\nb.wav\0c.wav\0", 14));
    EXPECT_THAT(read_file_list(dir_ / "nulls", ListSeparator::Null),
                ElementsAre("a\nb.wav", "c.wav"));
    EXPECT_THROW(read_file_list(dir_ / "missing", ListSeparator::Null), UsageError);
    EXPECT_THROW(read_file_list(dir_.path(), ListSeparator::Null), UsageError);
}

TEST_F(Archive, TheLastWordOfManyRunsCounts) {
    const auto lines = [&](const std::string& name,
                           const std::vector<std::pair<std::string, Outcome>>& files) {
        std::string text;
        for (const auto& [input, outcome] : files) {
            FileFacts facts;
            facts.input = input;
            facts.outcome = outcome;
            facts.cause = name;
            text += dump(to_json(facts)) + "\n";
        }
        write_text(dir_ / name, text + "{\"input\":\"b");  // killed in mid-line
    };
    using O = Outcome;
    lines("plan", {{"z", O::Planned}, {"a", O::Planned}, {"b", O::Planned}, {"c", O::Planned}});
    lines("first", {{"b", O::Failed}, {"a", O::Leveled}, {"z", O::Interrupted}});
    lines("second", {{"b", O::UpToDate}, {"a", O::UpToDate}, {"z", O::Failed}});
    ResultLines merged;
    for (const char* name : {"plan", "first", "second"}) {
        merged.add(dir_ / name);
    }
    merged.sort();
    std::string text;
    for (std::size_t i = 0; i < merged.size(); ++i) {
        const FileFacts facts = merged.facts(i);
        text += facts.input + " " + to_text(facts.outcome) + " " + facts.cause + "; ";
    }
    EXPECT_EQ("z failed second; a leveled first; b up-to-date second; c planned plan; ", text);
    ASSERT_EQ(3u, merged.problems().size());
    EXPECT_THAT(merged.problems()[0], HasSubstr("plan: line 5 is not a whole result"));
    EXPECT_THROW(facts_from_json(nlohmann::ordered_json::parse(
                     R"({"input":"a","output":null,"status":"done","cause":null})")),
                 nlohmann::json::exception)
        << "an unknown status";
}

}  // namespace
}  // namespace quorvane
