#include "leveling/engine/hooks.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "Common/files/whole_file.h"
#include "Common/platform.h"

namespace {

// Of the run on this thread.
thread_local std::string temporary_directory;
thread_local hooks::Deliver deliver = move_whole;
thread_local hooks::Delivery last_delivery = hooks::kNone;
thread_local std::string last_failure;

}  // namespace

namespace hooks {

void use_temporary_directory(const std::string& path) {
    temporary_directory = path;
    last_delivery = kNone;
    last_failure.clear();
}

void deliver_with(Deliver new_deliver) {
    deliver = new_deliver ? std::move(new_deliver) : move_whole;
}

Delivery delivery() {
    return last_delivery;
}

const std::string& delivery_failure() {
    return last_failure;
}

}  // namespace hooks

char* copyTemporaryDirectory() {
    return temporary_directory.empty() ? nullptr : strdup(temporary_directory.c_str());
}

void moveFinalFile(const char* finalPath, const char* outputPath) {
    last_delivery = hooks::kFailed;
    try {
        deliver(finalPath, outputPath);
        last_delivery = hooks::kDelivered;
    } catch (const std::runtime_error& failure) {
        last_failure = failure.what();
    }
}
