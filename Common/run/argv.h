#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace level_engine {

/** A step's argument vector, which owns its strings. */
class Argv {
  public:
    Argv(std::initializer_list<std::string> words) : words_(words) {
        for (const std::string& word : words_) {
            pointers_.push_back(word.c_str());
        }
    }

    // The pointers lead into the strings: a copy would point into the original.
    Argv(const Argv&) = delete;
    Argv& operator=(const Argv&) = delete;
    ~Argv() = default;

    int argc() const { return static_cast<int>(pointers_.size()); }

    const char** argv() { return pointers_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<const char*> pointers_;
};

}  // namespace level_engine

using level_engine::Argv;
