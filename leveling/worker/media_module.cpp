#include "leveling/worker/media_module.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>

#include "Common/files/descriptor.h"
#include "Common/version.h"
#include "leveling/facts/file_error.h"
#include "leveling/worker/own_program.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** From the program's folder; the same in the build tree as where it is installed. */
constexpr const char* kPlace = QUORVANE_MEDIA_MODULE_PLACE;

/** The loader's last error, which mostly begins with the module's path, without that. */
std::string loader_error(const std::string& module) {
    const std::string text = dlerror();
    const std::string prefix = module + ": ";
    return text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : text;
}

[[noreturn]] void fail(const std::string& module, const std::string& cause) {
    throw FileError(
        fmt::format("libsndfile does not read it, and {}, which reads videos and phone memos, {}",
                    module, cause));
}

/**
 * Some of what comes with FFmpeg's libraries ends the program, or waits for itself, when its start
 * finds no memory or may open no file: both are tried before.
 */
void require_room(const std::string& module) {
    constexpr std::size_t kBytes = std::size_t{64} << 20;
    void* room = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) {
        throw std::bad_alloc();
    }
    munmap(room, kBytes);
    const Descriptor file(module, O_RDONLY);
    if (!file.is_open()) {
        fail(module, fmt::format("cannot be loaded: cannot open shared object file: {}",
                                 std::strerror(errno)));
    }
}

/**
 * The module's place where this code is part of a library that another program has loaded: beside
 * the library, or beside the folder of its architecture. Empty where there is none.
 */
fs::path beside_this_library() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&media_module_path), &library) == 0 ||
        library.dli_fname == nullptr) {
        return "";
    }
    const fs::path folder = fs::path(library.dli_fname).parent_path();
    std::error_code error;
    for (const fs::path& libraries : {folder, folder.parent_path()}) {
        fs::path place = libraries / "quorvane" / fs::path(kPlace).filename();
        if (fs::exists(place, error)) {
            return place;
        }
    }
    return "";
}

const MediaModule& load() {
    const std::string path = media_module_path();
    if (path.empty()) {
        fail(kPlace, "cannot be looked for: the system does not tell where this program lies");
    }
    require_room(path);
    // It stays loaded to the end: what it made may be in use as long.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        fail(path, fmt::format("cannot be loaded: {}", loader_error(path)));
    }
    void* entry = dlsym(module, kMediaModuleEntry);
    if (!entry) {
        fail(path, "is not this program's");
    }
    const MediaModule& found = *reinterpret_cast<const MediaModule* (*)()>(entry)();
    if (found.version != std::string(kVersion)) {
        fail(path, fmt::format("is of version {}, this program of {}", found.version, kVersion));
    }
    return found;
}

}  // namespace

std::string media_module_path() {
    const std::string folder = own_folder();
    const fs::path path = folder.empty() ? fs::path() : (fs::path(folder) / kPlace);
    std::error_code error;
    if (!fs::exists(path, error)) {
        const fs::path beside = beside_this_library();
        if (!beside.empty()) {
            return beside.string();
        }
    }
    return path.lexically_normal().string();
}

const MediaModule& media_module() {
    static const MediaModule& module = load();
    return module;
}

}  // namespace quorvane
