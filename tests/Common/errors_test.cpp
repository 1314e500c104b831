#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <type_traits>

#include "Common/audio/frame_file.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/ss_util.h"
#include "Common/step/failure.h"
#include "tests/support/fixtures.h"

namespace {

/** Which of the handlers, in this order, takes what the function throws. */
template <class First, class Second>
std::string handler_of(const std::function<void()>& function) {
    try {
        function();
    } catch (const First&) {
        return "first";
    } catch (const Second&) {
        return "second";
    } catch (...) {
        return "none";
    }
    return "nothing thrown";
}

TEST(StepErrors, AShortWriteOfTheGatePassesItsFamilyAndEndsAsAStdException) {
    const auto fail = [] { throw gate::ss_sf_write_error("out.wav", 8192, 100); };
    EXPECT_EQ("second", (handler_of<gate::ss_sf_io_error, std::exception>(fail)));
    EXPECT_EQ("second", (handler_of<ss_error, std::exception>(fail)));
    EXPECT_EQ("first", (handler_of<gate::ss_sf_write_error, std::exception>(fail)));
}

TEST(StepErrors, MatchOnlyHandlersOfTheirOwnStepAndBases) {
    const auto fail = [] { throw reduce_loud::ss_sf_openinput_error("in.wav"); };
    EXPECT_EQ(
        "second",
        (handler_of<reduce_loud_peak::ss_sf_openinput_error, reduce_loud::ss_sf_open_error>(fail)));
    EXPECT_EQ("second", (handler_of<reduce_loud::ss_sf_format_error, ss_error>(fail)));
    EXPECT_EQ("second",
              (handler_of<ss_error, std::exception>([] { throw ss_cancel_exception(); })));
}

struct MessageRow {
    const char* name;
    std::function<void()> fail;
    const char* out;
    const char* err;
};

void PrintTo(const MessageRow& row, std::ostream* os) {
    *os << row.name;
}

class Messages : public testing::TestWithParam<MessageRow> {};

TEST_P(Messages, AreWrittenWordForWordWhereTheStepWritesThem) {
    const CapturedOutput captured;
    try {
        GetParam().fail();
    } catch (const std::exception&) {
        report_current_failure();
    }
    EXPECT_EQ(GetParam().out, captured.out());
    EXPECT_EQ(GetParam().err, captured.err());
}

INSTANTIATE_TEST_SUITE_P(
    Steps,
    Messages,
    testing::Values(
        MessageRow{"error", [] { throw ss_error(); }, "Unknown error.\n", ""},
        MessageRow{"command line", [] { throw normalize::ss_command_line_error(); }, "", ""},
        MessageRow{"gate i/o", [] { throw gate::ss_sf_io_error("f"); }, "",
                   "Sound file i/o error.\n"},
        MessageRow{"normalize i/o", [] { throw normalize::ss_sf_io_error("f"); },
                   "Sound file i/o error.\n", ""},
        MessageRow{"gate eof", [] { throw gate::ss_sf_unexpected_eof("f"); }, "",
                   "Error reading f\nExpected more samples\nThe sound file may be corrupt\n"},
        MessageRow{"loud eof", [] { throw reduce_loud::ss_sf_unexpected_eof("f"); },
                   "Error reading f\nExpected more samples\nThe sound file may be corrupt\n", ""},
        MessageRow{"gate write", [] { throw gate::ss_sf_write_error("f", 8, 3); }, "",
                   "std::exception"},
        MessageRow{"frame file", [] { throw incompatible_frames_err(); }, "", "std::exception"},
        MessageRow{"highpass channels",
                   [] { throw highpass::ss_sf_too_many_channels_error("f", 3); }, "",
                   "highpass: cannot process more than 2 channels; f has 3\n"},
        MessageRow{"peak silent", [] { throw reduce_loud_peak::ss_sf_input_silent_error("f"); }, "",
                   "f is silent\n"},
        MessageRow{"other", [] { throw std::runtime_error("what"); }, "", "what"}));

TEST(StepErrors, WhatAGenericHandlerDoesNotWriteIsTheCause) {
    const CapturedOutput captured;
    reporting::forget_failure();
    keep_sound_write_reason("full");
    try {
        throw gate::ss_sf_write_error("f", 8, 3);
    } catch (const gate::ss_sf_write_error& error) {
        report_current_failure();
        EXPECT_EQ("Error writing to f\nExpected to write 8, instead wrote 3\nfull",
                  reporting::first_failure().text);
        error.report();
    }
    EXPECT_EQ("std::exceptionError writing to f\nExpected to write 8, instead wrote 3\nfull\n",
              captured.err());
    reporting::forget_failure();
}

TEST(StepErrors, AnOpenErrorAddsTheLibrarysReason) {
    const CapturedOutput captured;
    EXPECT_EQ(1, call(gate::_tmain, {"gate", "/nowhere/in.wav", "/nowhere/out.wav"}));
    EXPECT_EQ(1, call(reduce_loud::_tmain, {"reduce_loud", "/nowhere/in.wav", "o.wav"}));
    EXPECT_EQ(
        "Error opening /nowhere/in.wav for input\nSystem error : No such file or directory.\n",
        captured.err());
    EXPECT_EQ(captured.err(), captured.out());
}

TEST(Allocation, AFailureNamesTheArrayAndTheLine) {
    const CapturedOutput captured;
    boost::scoped_array<double> array;
    const std::size_t more_than_there_is = SIZE_MAX / 4;
    EXPECT_THROW(allocate(array, more_than_there_is, "pBin", "Common/test", 12), ss_alloc_error);
    EXPECT_EQ("Error in allocating memory for pBin: std::bad_array_new_length (line 12)\n",
              captured.out());
}

}  // namespace
