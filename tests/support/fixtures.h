#pragma once

#include <sstream>
#include <string>
#include <vector>

/** A new folder that goes with all that is in it. */
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    /** The path of a file in it. */
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    const std::string& path() const { return path_; }

    /** Names of the entries, sorted, hidden ones too. */
    std::vector<std::string> entries() const;

  private:
    std::string path_;
};

/** Takes what is written to the standard output and error streams while it lives. */
class CapturedOutput {
  public:
    CapturedOutput();
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string out() const { return out_.str(); }

    std::string err() const { return err_.str(); }

  private:
    std::ostringstream out_;
    std::ostringstream err_;
    std::streambuf* old_out_;
    std::streambuf* old_err_;
};

/** Records what the engine tells its caller; sets itself as the run's progress callback. */
class ProgressRecorder {
  public:
    ProgressRecorder();
    ~ProgressRecorder();
    ProgressRecorder(const ProgressRecorder&) = delete;
    ProgressRecorder& operator=(const ProgressRecorder&) = delete;

    static int callback(void* context, float fraction);

    const std::vector<float>& fractions() const { return fractions_; }

  private:
    std::vector<float> fractions_;
};

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);
bool file_exists(const std::string& path);

/** Calls a step's entry with the words as its argument vector. */
template <class Entry>
auto call(Entry entry, const std::vector<std::string>& words) {
    std::vector<const char*> argv;
    for (const std::string& word : words) {
        argv.push_back(word.c_str());
    }
    return entry(static_cast<int>(argv.size()), argv.data());
}

/** What a program printed and how it ended. */
struct ProgramResult {
    int status;  // -signal when a signal ended it
    std::string out;
    std::string err;
};

/** Runs a program (with the shell's redirections, limits and so on). */
ProgramResult run_program(const std::string& command_line);
