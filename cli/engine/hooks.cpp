#include "cli/engine/hooks.h"

#include <boost/filesystem.hpp>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "Common/files/whole_file.h"
#include "Common/level.h"

namespace {

std::string temporary_directory;
std::string protected_input;
hooks::Delivery last_delivery = hooks::kNone;

}  // namespace

namespace hooks {

void use_temporary_directory(const std::string& path) {
    temporary_directory = path;
    last_delivery = kNone;
}

void protect_input(const std::string& path) {
    protected_input = path;
}

Delivery delivery() {
    return last_delivery;
}

}  // namespace hooks

char* copyTemporaryDirectory() {
    return temporary_directory.empty() ? nullptr : strdup(temporary_directory.c_str());
}

void moveFinalFile(const char* finalPath, const char* outputPath) {
    last_delivery = hooks::kFailed;
    try {
        boost::system::error_code ignored;
        if (!protected_input.empty() &&
            boost::filesystem::equivalent(protected_input, outputPath, ignored)) {
            throw std::runtime_error(std::string(outputPath) +
                                     ": the output would replace the input");
        }
        move_whole(finalPath, outputPath);
        last_delivery = hooks::kDelivered;
    } catch (const std::runtime_error& failure) {
        std::cerr << failure.what() << std::endl;
    }
}
