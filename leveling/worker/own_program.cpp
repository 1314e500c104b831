#include "leveling/worker/own_program.h"

#include <filesystem>
#include <system_error>

#ifdef __linux__
#include <sys/auxv.h>
#include <unistd.h>
#else
#include <boost/dll/runtime_symbol_info.hpp>
#endif

namespace quorvane {
namespace fs = std::filesystem;

#ifdef __linux__

std::string own_program() {
    // Where there is no /proc, what the kernel was told to start.
    constexpr const char* kOwn = "/proc/self/exe";
    if (access(kOwn, X_OK) == 0) {
        return kOwn;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): so the kernel hands over the address.
    const auto started_as = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return started_as ? started_as : "quorvane";
}

#else

std::string own_program() {
    return boost::dll::program_location().string();
}

#endif

std::string own_folder() {
    std::error_code error;
    const fs::path program = own_program();
    // The link of a program that was removed still names the folder, and the deleted file.
    fs::path file = fs::read_symlink(program, error);
    if (error && program.is_absolute()) {
        file = fs::canonical(program, error);
    }
    return file.is_absolute() ? file.parent_path().string() : "";
}

}  // namespace quorvane
