#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Common/level.h"
#include "leveling/engine/hooks.h"
#include "tests/support/engine_switches.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/** Runs levelMain over one file, with temporary and output folders of its own. */
class Level : public testing::Test {
  protected:
    Level() { hooks::use_temporary_directory(temporary.path() + "/"); }

    int run(const Signal& input,
            int format = kWav16,
            const std::vector<std::string>& options = {}) {
        write_sound(in, input, format);
        return run_file(options);
    }

    int run_file(const std::vector<std::string>& options = {}) {
        std::vector<std::string> words{"", "--input-file", in, "--output-file", out};
        words.insert(words.end(), options.begin(), options.end());
        fractions.clear();
        const CapturedOutput captured;
        const int result = call(
            [this](int argc, const char** argv) {
                return levelMain(argc, const_cast<char**>(argv), "", callback, this);
            },
            words);
        messages = captured.out();
        errors = captured.err();
        return result;
    }

    static int callback(void* context, float fraction) {
        Level* self = static_cast<Level*>(context);
        self->fractions.push_back(fraction);
        if (fraction >= self->cancel_at) {
            levelRequestCancel();
        }
        return 0;
    }

    static int has_progress(void* context) {
        return static_cast<Level*>(context)->fractions.empty() ? 0 : 1;
    }

    const EngineSwitches switches;
    TempDir temporary;
    TempDir dir;
    std::string in = dir / "in.wav";
    std::string out = dir / "out.wav";
    std::vector<float> fractions;
    float cancel_at = 2.0F;
    std::string messages;
    std::string errors;
};
