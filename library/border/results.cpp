#include <fmt/format.h>

#include <optional>

#include "library/border/handle.h"

/* The C functions that report what the last call found. */

namespace {

using quorvane::CallError;
using quorvane::guarded;
using quorvane::Leveler;

const quorvane::Results& results_in(const quorvane_leveler* leveler) {
    static const quorvane::Results* const none = new quorvane::Results;
    return leveler == nullptr ? *none : leveler->leveler.results();
}

void require_index(std::size_t index, std::size_t count, const char* what) {
    if (index >= count) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{} {} is asked for, counted from 0, of {}", what, index, count));
    }
}

void require_moment(int moment) {
    if (moment != QUORVANE_BEFORE && moment != QUORVANE_AFTER) {
        throw CallError(QUORVANE_BAD_ARGUMENT,
                        fmt::format("{} is neither QUORVANE_BEFORE nor QUORVANE_AFTER", moment));
    }
}

const double* give_curve(const quorvane::Curve* curve, size_t* count, double* step_s) {
    const bool is_there = curve != nullptr && !curve->values.empty();
    if (count != nullptr) {
        *count = is_there ? curve->values.size() : 0;
    }
    if (step_s != nullptr) {
        *step_s = is_there ? curve->step_s : 0;
    }
    return is_there ? curve->values.data() : nullptr;
}

}  // namespace

int quorvane_select_track(quorvane_leveler* leveler, size_t index) {
    return guarded(leveler, [&](Leveler& with) {
        require_index(index, with.tracks(), "track");
        with.select(index);
    });
}

int quorvane_get_outcome(const quorvane_leveler* leveler) {
    return results_in(leveler).outcome;
}

const char* quorvane_reason(const quorvane_leveler* leveler) {
    return results_in(leveler).facts.cause.c_str();
}

const char* quorvane_verdict(const quorvane_leveler* leveler) {
    return results_in(leveler).verdict.c_str();
}

const char* quorvane_facts_json(const quorvane_leveler* leveler) {
    const std::string& json = results_in(leveler).json;
    return json.empty() ? "{}" : json.c_str();
}

int quorvane_get_loudness(quorvane_leveler* leveler, int moment, quorvane_loudness* loudness) {
    return guarded(leveler, [&](Leveler& with) {
        require_moment(moment);
        const auto found = loudness_of(with.results().facts, static_cast<quorvane_moment>(moment));
        if (!found) {
            throw CallError(QUORVANE_WRONG_STATE, "that moment was not measured");
        }
        quorvane::write_struct(*found, loudness, "loudness");
    });
}

const double* quorvane_short_term(const quorvane_leveler* leveler,
                                  int moment,
                                  size_t* count,
                                  double* step_s) {
    const quorvane::FileFacts& facts = results_in(leveler).facts;
    const auto& found = moment == QUORVANE_AFTER ? facts.after : facts.before;
    return give_curve(found ? &found->short_term_lufs : nullptr, count, step_s);
}

size_t quorvane_finding_count(const quorvane_leveler* leveler) {
    return results_in(leveler).facts.findings.size();
}

int quorvane_get_finding(quorvane_leveler* leveler, size_t index, quorvane_finding* finding) {
    return guarded(leveler, [&](Leveler& with) {
        const quorvane::Results& results = with.results();
        require_index(index, results.facts.findings.size(), "finding");
        const quorvane::Finding& from = results.facts.findings[index];
        quorvane_finding found{};
        found.code = from.code.c_str();
        found.severity = static_cast<int>(from.severity);
        found.value = from.value;
        found.unit = from.unit.c_str();
        found.detail = from.detail.c_str();
        found.sentence = results.sentences[index].c_str();
        found.place_count = from.places.size();
        found.places = results.places[index].data();
        quorvane::write_struct(found, finding, "finding");
    });
}

size_t quorvane_passage_count(const quorvane_leveler* leveler) {
    const auto& leveling = results_in(leveler).facts.leveling;
    return leveling ? leveling->passages.size() : 0;
}

int quorvane_get_passage(quorvane_leveler* leveler, size_t index, quorvane_passage* passage) {
    return guarded(leveler, [&](Leveler& with) {
        require_index(index, quorvane_passage_count(leveler), "passage");
        const quorvane::Passage& from = with.results().facts.leveling->passages[index];
        const quorvane_passage found{0, from.from_s, from.to_s, from.level_db, from.gain_db};
        quorvane::write_struct(found, passage, "passage");
    });
}

const double* quorvane_gain_curve(const quorvane_leveler* leveler, size_t* count, double* step_s) {
    const auto& leveling = results_in(leveler).facts.leveling;
    return give_curve(leveling ? &leveling->gain_db : nullptr, count, step_s);
}

size_t quorvane_note_count(const quorvane_leveler* leveler) {
    return results_in(leveler).facts.notes.size();
}

const char* quorvane_note(const quorvane_leveler* leveler, size_t index) {
    const auto& notes = results_in(leveler).facts.notes;
    return index < notes.size() ? notes[index].c_str() : "";
}
