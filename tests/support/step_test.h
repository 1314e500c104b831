#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/fixtures.h"

/** Runs a step's entry on files of a folder of its own and keeps what it said. */
class StepTest : public testing::Test {
  protected:
    /** words: the step's name and its files; the options come behind them. */
    template <class Entry>
    auto run_step(Entry entry,
                  std::vector<std::string> words,
                  const std::vector<std::string>& options) {
        words.insert(words.end(), options.begin(), options.end());
        const CapturedOutput captured;
        const auto result = call(entry, words);
        out = captured.out();
        err = captured.err();
        return result;
    }

    TempDir dir;
    std::string out;
    std::string err;
    ProgressRecorder progress;
};
