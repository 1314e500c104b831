#include "tests/fuzz/fuzz_support.h"

#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fuzz {

namespace {

/** Made in memory where the system has such a place: a fuzzer writes thousands of files a second.
 */
std::string make_folder() {
    std::string name =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-XXXXXX" : "/tmp/fuzz-XXXXXX";
    if (mkdtemp(&name[0]) == nullptr) {
        std::perror(name.c_str());
        std::abort();
    }
    return name + "/";
}

/** Removes the folder when the process ends, but not in a copy that a crash handler forked. */
struct Folder {
    Folder() : path(make_folder()), owner(getpid()) {}

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    ~Folder() {
        if (getpid() == owner) {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }

    std::string path;
    pid_t owner;
};

constexpr std::int64_t kUnbounded = INT64_MAX;
std::atomic<std::int64_t> heap_bytes{0};
std::atomic<std::int64_t> most_heap_bytes{kUnbounded};

void count_allocation(const volatile void* /*block*/, std::size_t size) {
    if ((heap_bytes += static_cast<std::int64_t>(size)) > most_heap_bytes) {
        most_heap_bytes = kUnbounded;  // telling it takes memory, too
        std::fputs("ERROR: more memory than 50 times the input's size and 100 MB\n", stderr);
        std::abort();
    }
}

void count_release(const volatile void* block) {
    heap_bytes -=
        static_cast<std::int64_t>(__sanitizer_get_allocated_size(const_cast<const void*>(block)));
}

}  // namespace

MemoryBound::MemoryBound(std::size_t input_bytes) {
    static const int installed =
        __sanitizer_install_malloc_and_free_hooks(count_allocation, count_release);
    if (installed == 0) {
        std::abort();
    }
    constexpr std::int64_t kTimes = 50;
    constexpr std::int64_t kMoreBytes = 100 << 20;
    most_heap_bytes = heap_bytes + kTimes * static_cast<std::int64_t>(input_bytes) + kMoreBytes;
}

MemoryBound::~MemoryBound() {
    most_heap_bytes = kUnbounded;
}

const std::string& folder() {
    static const Folder made;
    return made.path;
}

std::string file(const std::string& name, const std::uint8_t* data, std::size_t size) {
    const std::string path = folder() + name;
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr || std::fwrite(data, 1, size, out) != size || std::fclose(out) != 0) {
        std::perror(path.c_str());
        std::abort();
    }
    return path;
}

std::vector<std::string> words(const std::uint8_t* data, std::size_t size, std::size_t most_words) {
    std::vector<std::string> cut(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] != 0) {
            cut.back() += static_cast<char>(data[i]);
        } else if (cut.size() < most_words) {
            cut.emplace_back();
        } else {
            break;
        }
    }
    return cut;
}

}  // namespace fuzz
