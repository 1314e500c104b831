#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/batch_run.h"

extern char** environ;

/** The program as it watches a folder, with the files that it writes about that. */
class WatchRun : public BatchRun {
  protected:
    WatchRun() { std::filesystem::create_directory(dir_ / "in"); }

    ~WatchRun() override {
        if (pid_ > 0) {
            stop(SIGKILL);
        }
    }

    /** around: shell words in front of the program's name, which run it. */
    void start(const std::string& words = "-d out", const std::string& around = "") {
        const std::string line = "cd '" + dir_.path() + "' && exec " + around +
                                 QUORVANE " --watch in --json - --no-measure " + words +
                                 " >>lines.jsonl 2>>words.txt";
        std::string shell = "sh";
        std::string option = "-c";
        std::string command = line;
        char* argv[] = {&shell[0], &option[0], &command[0], nullptr};
        ASSERT_EQ(posix_spawn(&pid_, "/bin/sh", nullptr, nullptr, argv, environ), 0);
        ++starts_;
        ASSERT_TRUE(until([&] { return events("watching").size() == starts_; })) << words_text();
    }

    /** Ends it and returns its status, -signal when a signal ended it. */
    int stop(int signal) {
        kill(pid_, signal);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

    /** Waits for it; false after a time that no machine needs. */
    static bool until(const std::function<bool()>& is_so) {
        const auto latest = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        while (!is_so()) {
            if (std::chrono::steady_clock::now() > latest) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    std::vector<nlohmann::json> events(const std::string& name) const {
        std::vector<nlohmann::json> found;
        std::ifstream in(dir_ / "lines.jsonl");
        for (std::string line; std::getline(in, line) && !in.eof();) {
            auto json = nlohmann::json::parse(line);
            if (json["event"] == name) {
                found.push_back(std::move(json));
            }
        }
        return found;
    }

    bool is_finished(std::size_t count) {
        return until([&] { return events("finished").size() >= count; });
    }

    std::string words_text() const { return read_text(dir_ / "words.txt"); }

    pid_t pid_ = -1;
    std::size_t starts_ = 0;
};
