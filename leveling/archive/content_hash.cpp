#include "leveling/archive/content_hash.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <xxhash.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <vector>

#include "Common/files/descriptor.h"

namespace quorvane {
namespace {

// Read at a time: a disk's sequential speed, and little memory.
constexpr std::size_t kBlockBytes = 1 << 20;

/** 32 hexadecimal digits, most significant first. */
std::string digits(XXH128_hash_t hash) {
    return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
}

}  // namespace

// XXH3 with 128 bits: not against forgery, but no two recordings of an archive share it.
std::string content_hash(const std::string& path) {
    const auto fail = [&] { throw std::system_error(errno, std::generic_category(), path); };
    const Descriptor file(path, O_RDONLY | O_CLOEXEC);
    if (!file.is_open()) {
        fail();
    }
    const std::unique_ptr<XXH3_state_t, XXH_errorcode (*)(XXH3_state_t*)> state(XXH3_createState(),
                                                                                XXH3_freeState);
    XXH3_128bits_reset(state.get());
    std::vector<char> block(kBlockBytes);
    for (;;) {
        const ssize_t got = read(file.get(), block.data(), block.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            fail();
        }
        if (got == 0) {
            return digits(XXH3_128bits_digest(state.get()));
        }
        XXH3_128bits_update(state.get(), block.data(), static_cast<std::size_t>(got));
    }
}

std::string text_hash(const std::string& text) {
    return digits(XXH3_128bits(text.data(), text.size()));
}

std::uint64_t name_hash(const std::string& name) {
    return XXH3_64bits(name.data(), name.size());
}

}  // namespace quorvane
