#include "library/run/file_output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "leveling/audio/audio_formats.h"
#include "leveling/facts/file_error.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Decoded audio is so many times as large as a file that is coded with loss.
constexpr std::uint64_t kDecoded = 24;

}  // namespace

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

void require_free(const Settings& settings, const std::string& input, const std::string& output) {
    std::error_code error;
    if (fs::equivalent(input, output, error)) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{}: the output is the input, which is never written to", output));
    }
    if (!settings.replace && fs::exists(fs::symlink_status(output, error))) {
        throw CallError(QUORVANE_EXISTS,
                        fmt::format("{}: exists, and the option to replace it is not set", output));
    }
}

void require_apart(const Settings& settings, const std::string& input, const std::string& output) {
    const std::string wanted = lower_extension(input);
    const std::string given = lower_extension(output);
    if (wanted != given && !same_container(wanted, given)) {
        throw CallError(
            QUORVANE_BAD_ARGUMENT,
            fmt::format("{}: the output has the input's format, so its name ends in .{}", output,
                        wanted));
    }
    require_free(settings, input, output);
}

std::uint64_t audio_bytes(const Settings& settings, const std::string& input) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(input, error);
    const std::string extension = lower_extension(input);
    const bool is_plain = same_container(extension, "wav") || same_container(extension, "aiff");
    return error ? settings.memory_bytes + 1 : bytes * (is_plain ? 1 : kDecoded);
}

FileOutput::FileOutput(const Workplace& place, const std::string& input, const std::string& output)
    : place_(place),
      input_(fs::absolute(input).string()),
      input_name_(input),
      name_(output),
      destination_(fs::absolute(output).string()),
      before_(state_of(input_)) {
    with_errors([&] {
        remove_stale_parts(destination_);
        staged_ = std::make_unique<StagedOutput>(destination_);
        staged_->keep_private();
    });
}

void FileOutput::with_errors(const std::function<void()>& work) const {
    with_errors_of(place_, {input_, name_}, work);
}

void FileOutput::complete() {
    with_errors([&] {
        staged_->take_protection_of(input_);
        staged_->sync();
        if (state_of(input_) != before_) {
            throw CallError(QUORVANE_BAD_AUDIO,
                            fmt::format("{}: {}", input_name_, kChangedWhileRead));
        }
    });
}

void FileOutput::commit(const Settings& settings) {
    with_errors([&] {
        const bool replaced = state_of(destination_).exists();
        try {
            staged_->commit(settings.replace ? Existing::Replace : Existing::Keep);
            replaced_ = replaced;
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::file_exists) {
                throw;
            }
            throw CallError(QUORVANE_EXISTS,
                            fmt::format("{}: was created by another program in the meantime and "
                                        "was kept",
                                        name_));
        }
    });
}

void FileOutput::withdraw() const {
    std::error_code ignored;
    if (!replaced_) {
        fs::remove(destination_, ignored);
    }
}

Results level_to_file(const CallContext& call,
                      const std::string& input,
                      const std::string& output) {
    require_readable(input);
    require_apart(call.settings, input, output);
    const Workplace place(call.settings, audio_bytes(call.settings, input));
    FileOutput file(place, input, output);
    Results results = level_recording(call, place, {fs::absolute(input).string(), input},
                                      file.destination(), file.part());
    file.complete();
    file.commit(call.settings);
    return results;
}

Results measure_of_file(const CallContext& call, const std::string& input) {
    require_readable(input);
    const Workplace place(call.settings, audio_bytes(call.settings, input));
    const Recording recording{fs::absolute(input).string(), input};
    return level_recording(call, place, recording, "", "");
}

}  // namespace quorvane
