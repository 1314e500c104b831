#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

namespace {

/** Runs the program in the folder with the library that looks from the inside. */
ProgramResult run_inside(const TempDir& dir,
                         const std::string& variables,
                         const std::string& words) {
    return run_program("cd '" + dir.path() + "' && exec 9<other.txt && LD_PRELOAD=" INSIDE " " +
                       variables + " " QUORVANE " " + words);
}

std::map<std::string, std::string> results_in(const std::string& text) {
    std::map<std::string, std::string> results;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string mark = "inside ";
        const std::size_t end = line.rfind(": ");
        if (line.rfind(mark, 0) == 0 && end != std::string::npos) {
            results[line.substr(mark.size(), end - mark.size())] = line.substr(end + 2);
        }
    }
    return results;
}

// A library in a real worker makes each call. A call that this table does not allow is refused
// with EPERM; calls that name files pass the list of calls, and the file fence refuses them.
TEST(Fence, OnlyTheCallsOfAWorkerAreAllowed) {
    const TempDir dir;
    write_sound(dir / "talk.wav", signals::speech(2, 16000), kWav16);
    write_text(dir / "other.txt", "foreign");
    const ProgramResult result =
        run_inside(dir, "INSIDE_REPORT=1 INSIDE_INPUT=$PWD/talk.wav INSIDE_OTHER=$PWD/other.txt",
                   "-v --json facts.json talk.wav");
    ASSERT_EQ(0, result.status) << result.err;
    if (nlohmann::json::parse(read_text(dir / "facts.json")).contains("unfenced")) {
        GTEST_SKIP() << "this kernel has no such fences";
    }
    const std::map<std::string, std::string> exceptions = {
        {"tgkill itself", "allowed"},
        {"prlimit64 itself", "allowed"},
        {"sched_getaffinity", "allowed"},
        {"a thread", "allowed"},
        {"open to read the input", "allowed"},
        {"clone3", "ENOSYS"},
        {"a call of the future", "ENOSYS"},
        {"a descriptor of the starter", "EBADF"},
        {"open to write the input", "EACCES"},
        {"open to write another file", "EACCES"},
        {"open to read another file", "EACCES"},
        {"unlink the input", "EACCES"},
        {"unlink another file", "EACCES"},
        {"rename the input", "EACCES"},
        {"rename another file", "EACCES"},
        {"make a file", "EACCES"},
        {"mkdirat", "EACCES"},
        {"read /proc of the parent", "EACCES"},
    };
    const auto results = results_in(result.out);
    EXPECT_GT(results.size(), 100u);
    for (const auto& [name, outcome] : results) {
        const auto exception = exceptions.find(name);
        EXPECT_EQ(exception == exceptions.end() ? "EPERM" : exception->second, outcome) << name;
    }
    for (const auto& exception : exceptions) {
        EXPECT_EQ(1u, results.count(exception.first)) << exception.first;
    }
    EXPECT_EQ("foreign", read_text(dir / "other.txt"));
}

// The program that starts the workers opens no input itself: a header that ends a process costs its
// file, before the run as in it.
TEST(Fence, AHeaderThatEndsAProcessCostsItsFile) {
    const TempDir dir;
    fs::create_directory(dir / "in");
    write_text(dir / "other.txt", "");
    for (const char* name : {"a.wav", "crash.wav", "m.wav", "z.wav"}) {
        write_sound(dir / (std::string("in/") + name), signals::speech(1, 16000), kWav16);
    }
    for (const std::string words : {"-n in", "-d out in", "-d out -f in/crash.wav"}) {
        SCOPED_TRACE(words);
        const bool alone = words.find("crash") != std::string::npos;
        const ProgramResult result =
            run_inside(dir, "INSIDE_CRASH=crash.wav", "--json facts.json " + words);
        EXPECT_EQ(1, result.status) << result.out;
        EXPECT_THAT(result.err,
                    HasSubstr("in/crash.wav: its worker process was ended by signal 9"));
        EXPECT_THAT(result.err, Not(HasSubstr("in/m.wav")));
        std::istringstream lines(read_text(dir / "facts.json"));
        int count = 0;
        for (std::string line; std::getline(lines, line); ++count) {
            const auto facts = nlohmann::json::parse(line);
            EXPECT_EQ(facts["input"] == "in/crash.wav", facts["status"] == "failed") << line;
        }
        EXPECT_EQ(alone ? 1 : 4, count);
    }
}

// A report cuts excerpts from outputs, which bear their names by then.
TEST(Fence, ExcerptsAreCutInAWorker) {
    const TempDir dir;
    write_text(dir / "other.txt", "");
    write_sound(dir / "talk.wav", signals::speech(4, 16000), kWav16);
    for (const bool crashes : {false, true}) {
        const ProgramResult result = run_inside(dir, crashes ? "INSIDE_CRASH=-leveled.wav" : "",
                                                "-f --report page.html talk.wav");
        EXPECT_EQ(0, result.status) << result.err;
        const std::string page = read_text(dir / "page.html");
        EXPECT_THAT(page, HasSubstr("Over time"));
        EXPECT_EQ(crashes, page.find("data:audio/ogg") == page.npos);
    }
}

TEST(Fence, AKernelWithoutFencesIsReported) {
    const TempDir dir;
    write_text(dir / "other.txt", "");
    write_sound(dir / "talk.wav", signals::speech(1, 16000), kWav16);
    const ProgramResult result = run_inside(dir, "INSIDE_BARE=1", "-v --json facts.json talk.wav");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("this kernel does not limit the files and calls of workers"));
    EXPECT_EQ(nlohmann::json({"files", "calls"}),
              nlohmann::json::parse(read_text(dir / "facts.json"))["unfenced"]);
    EXPECT_THAT(read_text(dir / ".quorvane.jsonl"), Not(HasSubstr("unfenced")));
}

}  // namespace
