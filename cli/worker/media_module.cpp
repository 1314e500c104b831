#include "cli/worker/media_module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <string>

#include "Common/version.h"
#include "cli/facts/file_error.h"
#include "cli/worker/own_program.h"

namespace cli {
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

const MediaModule& load() {
    const std::string folder = own_folder();
    const std::string path = (fs::path(folder) / kPlace).lexically_normal().string();
    if (folder.empty()) {
        fail(path, "cannot be looked for: the system does not tell where this program lies");
    }
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

const MediaModule& media_module() {
    static const MediaModule& module = load();
    return module;
}

}  // namespace cli
