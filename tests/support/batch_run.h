#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/** The program, which does not wait for recordings that a test has just made. */
#define QUORVANE_AT_ONCE QUORVANE " --settle 0 "

/** Shell words that run what follows where FOLDER is a disk of its own with so many kilobytes. */
inline std::string with_disk(const std::string& folder, int kilobytes) {
    return "unshare -rm sh -c 'mount -t tmpfs -o size=" + std::to_string(kilobytes) +
           "k none \"$0\" && exec \"$@\"' " + folder + " ";
}

/** Runs the program on recordings in a folder of its own, and reads what it reported. */
class BatchRun : public testing::Test {
  protected:
    BatchRun() {
        std::filesystem::create_directory(dir_ / "tmp");
        setenv("TMPDIR", (dir_ / "tmp").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (dir_ / "config").c_str(), 1);  // the user's own does not count
    }

    ~BatchRun() override {
        EXPECT_THAT(names_in("tmp"), testing::IsEmpty()) << "temporary files were left";
        unsetenv("TMPDIR");
        unsetenv("XDG_CONFIG_HOME");
    }

    void talk(const std::string& name, double seconds = 4, int format = kWav16) {
        std::filesystem::create_directories(std::filesystem::path(dir_ / name).parent_path());
        write_sound(dir_ / name, signals::speech(seconds, 16000), format);
    }

    ProgramResult run(const std::string& words) {
        const bool takes_options =
            words.rfind("merge", 0) != 0 && words.find("--input-file") == std::string::npos;
        return run_program("cd '" + dir_.path() + "' && " +
                           (takes_options ? QUORVANE_AT_ONCE : QUORVANE " ") + words);
    }

    std::vector<std::string> names_in(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir_ / folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    // Without the record of what is done.
    std::vector<std::string> outputs_in(const std::string& folder) const {
        std::vector<std::string> names = names_in(folder);
        names.erase(std::remove(names.begin(), names.end(), ".quorvane.jsonl"), names.end());
        return names;
    }

    // Facts of a run, by input.
    static std::map<std::string, nlohmann::json> facts(const std::string& lines) {
        std::map<std::string, nlohmann::json> result;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);) {
            const auto json = nlohmann::json::parse(line);
            result[json["input"]] = json;
        }
        return result;
    }

    TempDir dir_;
};
