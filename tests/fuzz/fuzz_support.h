#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/**
 * What the fuzzers share: a folder in memory that goes with the process, files of arbitrary bytes
 * in it, and command lines cut from arbitrary bytes. libFuzzer calls each target again and again in
 * one process, so nothing here may grow with the number of calls.
 */
namespace fuzz {

/** The fuzzer's own folder, with "/" at its end; made at the first call. */
const std::string& folder();

/** Writes size bytes to the file of that name in the folder, replacing it, and returns its path. */
std::string file(const std::string& name, const std::uint8_t* data, std::size_t size);

/** The bytes as words, cut at zero bytes; at most most_words of them. */
std::vector<std::string> words(const std::uint8_t* data, std::size_t size, std::size_t most_words);

/**
 * Ends the process, as a finding, when more heap is asked for while this object lives than is sound
 * for an input of so many bytes: 50 times its size and 100 MB. What is counted is what was asked
 * for, so that the sanitizer's own memory does not matter.
 */
class MemoryBound {
  public:
    explicit MemoryBound(std::size_t input_bytes);
    ~MemoryBound();
    MemoryBound(const MemoryBound&) = delete;
    MemoryBound& operator=(const MemoryBound&) = delete;
};

/** Calls a step's entry with the words as its argument vector. Exceptions it lets out are dropped:
 * the driver and the step runner turn them into failures. */
template <class Entry>
void call(Entry entry, const std::vector<std::string>& arguments) {
    std::vector<const char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& word : arguments) {
        argv.push_back(word.c_str());
    }
    argv.push_back(nullptr);
    try {
        entry(static_cast<int>(arguments.size()), argv.data());
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): a clean failure
    }
}

}  // namespace fuzz
