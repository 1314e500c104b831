#include "leveling/facts/facts_list.h"

#include <utility>

namespace quorvane {
namespace {

/** Whether nothing is known but the input, the outcome and its cause. */
bool is_brief(const FileFacts& facts) {
    // Names every member: one that is added does not compile until it is looked at here.
    const auto& [input, output, outcome, cause, no_room, earlier_arithmetic, format, media,
                 sample_rate_hz, channels, frames, bytes, elapsed_s, before, after, leveling,
                 preparation, publishing, conversation, dialogue_lufs, speech, findings, notes,
                 unfenced] = facts;
    const bool has_text = !output.empty() || !format.empty() || !notes.empty() || !unfenced.empty();
    const bool has_number = no_room || earlier_arithmetic || sample_rate_hz != 0 || channels != 0 ||
                            frames != 0 || bytes != 0 || elapsed_s != 0;
    return !has_text && !has_number && !media && !before && !after && !leveling && !preparation &&
           !publishing && !conversation && !dialogue_lufs && !speech && findings.empty();
}

}  // namespace

FactsList::FactsList(std::initializer_list<FileFacts> files) {
    for (const FileFacts& facts : files) {
        push_back(facts);
    }
}

void FactsList::set(std::size_t index, FileFacts facts) {
    if (is_brief(facts)) {
        const std::string* cause = &*causes_.insert(std::move(facts.cause)).first;
        // Sets room for the name as it is: one that grew while it was read has more.
        facts.input.shrink_to_fit();
        files_[index] =
            std::make_unique<Brief>(Brief{std::move(facts.input), cause, facts.outcome});
    } else {
        files_[index] = std::make_unique<FileFacts>(std::move(facts));
    }
}

void FactsList::push_back(FileFacts facts) {
    files_.emplace_back();
    set(files_.size() - 1, std::move(facts));
}

FileFacts FactsList::take(std::size_t index) {
    FileFacts facts;
    if (auto* const whole = std::get_if<std::unique_ptr<FileFacts>>(&files_[index])) {
        facts = std::move(**whole);
    } else if (auto& brief = std::get<std::unique_ptr<Brief>>(files_[index])) {
        facts.input = std::move(brief->input);
        facts.cause = *brief->cause;
        facts.outcome = brief->outcome;
    }
    files_[index] = {};
    return facts;
}

FactsList::Iterator FactsList::begin() const {
    return Iterator(files_.begin());
}

FactsList::Iterator FactsList::end() const {
    return Iterator(files_.end());
}

FactsList::Iterator::reference FactsList::Iterator::operator*() const {
    if (const auto* const whole = std::get_if<std::unique_ptr<FileFacts>>(&*at_)) {
        return **whole;
    }
    const auto& brief = std::get<std::unique_ptr<Brief>>(*at_);
    from_brief_.input = brief ? brief->input : "";
    from_brief_.cause = brief ? *brief->cause : "";
    from_brief_.outcome = brief ? brief->outcome : FileFacts{}.outcome;
    return from_brief_;
}

}  // namespace quorvane
