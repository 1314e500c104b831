#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * The facts of many files. A file of which only its name, outcome and cause are known, such as one
 * that does not exist, takes some 60 bytes and its name, a tenth of a FileFacts.
 */
class FactsList {
  public:
    class Iterator;

    explicit FactsList(std::size_t count = 0) : files_(count) {}

    FactsList(std::initializer_list<FileFacts> files);

    std::size_t size() const { return files_.size(); }

    /** Keeps the facts in place of what was at the index. */
    void set(std::size_t index, FileFacts facts);

    void push_back(FileFacts facts);

    /** Gives the facts at the index away; facts without any content stay there. */
    FileFacts take(std::size_t index);

    /** The facts that an iterator refers to are valid until it moves. */
    Iterator begin() const;
    Iterator end() const;

  private:
    struct Brief {
        std::string input;
        const std::string* cause;  // one of causes_
        Outcome outcome;
    };

    using Entry = std::variant<std::unique_ptr<Brief>, std::unique_ptr<FileFacts>>;

    std::vector<Entry> files_;
    std::unordered_set<std::string> causes_;  // thousands of files share one
};

class FactsList::Iterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = FileFacts;
    using difference_type = std::ptrdiff_t;
    using pointer = const FileFacts*;
    using reference = const FileFacts&;

    explicit Iterator(std::vector<Entry>::const_iterator at) : at_(at) {}

    reference operator*() const;

    Iterator& operator++() {
        ++at_;
        return *this;
    }

    bool operator==(const Iterator& other) const { return at_ == other.at_; }

    bool operator!=(const Iterator& other) const { return at_ != other.at_; }

  private:
    std::vector<Entry>::const_iterator at_;
    mutable FileFacts from_brief_;  // made when it is asked for
};

}  // namespace quorvane
