#include "library/run/file_output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "leveling/archive/record.h"
#include "leveling/audio/audio_formats.h"
#include "leveling/facts/file_error.h"
#include "leveling/storage/staged_output.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Decoded audio is so many times as large as a file that is coded with loss.
constexpr std::uint64_t kDecoded = 24;

void require_readable(const std::string& input) {
    std::error_code error;
    if (fs::is_directory(input, error)) {
        throw CallError(QUORVANE_IO_ERROR, fmt::format("{}: it is a folder, not a file", input));
    }
    if (access(input.c_str(), R_OK) != 0) {
        throw CallError(QUORVANE_IO_ERROR,
                        fmt::format("{}: cannot be read: {}", input, std::strerror(errno)));
    }
}

void require_apart(const Settings& settings, const std::string& input, const std::string& output) {
    std::error_code error;
    if (fs::equivalent(input, output, error)) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{}: the output is the input, which is never written to", output));
    }
    const std::string wanted = lower_extension(input);
    const std::string given = lower_extension(output);
    if (wanted != given && !same_container(wanted, given)) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{}: the output has the input's format, so its name ends in .{}", output,
                        wanted));
    }
    if (!settings.replace && fs::exists(fs::symlink_status(output, error))) {
        throw CallError(QUORVANE_EXISTS,
                        fmt::format("{}: exists, and the option to replace it is not set", output));
    }
}

Workplace workplace_for(const Settings& settings, const std::string& input) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(input, error);
    const std::string extension = lower_extension(input);
    const bool is_plain = same_container(extension, "wav") || same_container(extension, "aiff");
    return {settings, error ? settings.memory_bytes + 1 : bytes * (is_plain ? 1 : kDecoded)};
}

void commit(const Settings& settings, const std::string& output, StagedOutput& staged) {
    try {
        staged.commit(settings.replace ? Existing::Replace : Existing::Keep);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::file_exists) {
            throw;
        }
        throw CallError(QUORVANE_EXISTS,
                        fmt::format("{}: was created by another program in the meantime and was "
                                    "kept",
                                    output));
    }
}

}  // namespace

Results level_to_file(const CallContext& call,
                      const std::string& input,
                      const std::string& output) {
    require_readable(input);
    require_apart(call.settings, input, output);
    const Workplace place = workplace_for(call.settings, input);
    const Recording recording{fs::absolute(input).string(), input};
    const std::string destination = fs::absolute(output).string();
    const FileState before = state_of(recording.path);
    const auto at_output = [&](const std::function<void()>& work) {
        with_errors_of(place, {recording.path, output}, work);
    };
    std::unique_ptr<StagedOutput> staged;
    at_output([&] {
        remove_stale_parts(destination);
        staged = std::make_unique<StagedOutput>(destination);
        staged->keep_private();
    });
    Results results = level_recording(call, place, recording, destination, staged->path());
    at_output([&] {
        staged->take_protection_of(recording.path);
        staged->sync();
        if (state_of(recording.path) != before) {
            throw CallError(QUORVANE_BAD_AUDIO, fmt::format("{}: {}", input, kChangedWhileRead));
        }
        commit(call.settings, output, *staged);
    });
    return results;
}

Results measure_of_file(const CallContext& call, const std::string& input) {
    require_readable(input);
    const Workplace place = workplace_for(call.settings, input);
    const Recording recording{fs::absolute(input).string(), input};
    return level_recording(call, place, recording, "", "");
}

}  // namespace quorvane
