#include "leveling/watch/service_manager.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace quorvane {
namespace {

/** The variable's value, "" without one; it is removed, as workers have no use for it. */
std::string take_variable(const char* name) {
    const char* value = getenv(name);
    std::string text = value ? value : "";
    unsetenv(name);
    return text;
}

/** A status is one line. */
std::string one_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

ServiceManager::ServiceManager() : address_(take_variable("NOTIFY_SOCKET")) {
    const std::string limit = take_variable("WATCHDOG_USEC");
    const std::string process = take_variable("WATCHDOG_PID");
    if (address_.empty() || address_.size() >= sizeof(sockaddr_un{}.sun_path)) {
        address_.clear();
        return;
    }
    socket_ = socket(AF_UNIX, SOCK_DGRAM, 0);
    fcntl(socket_, F_SETFD, FD_CLOEXEC);
    const long long limit_us = std::atoll(limit.c_str());
    if (limit_us > 1 && (process.empty() || process == std::to_string(getpid()))) {
        alive_every_ = std::chrono::microseconds(limit_us / 2);
    }
}

ServiceManager::~ServiceManager() {
    if (socket_ >= 0) {
        close(socket_);
    }
}

void ServiceManager::ready(const std::string& status) const {
    send("READY=1\nSTATUS=" + one_line(status));
}

void ServiceManager::status(const std::string& status) const {
    send("STATUS=" + one_line(status));
}

void ServiceManager::reloading() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    send(fmt::format("RELOADING=1\nMONOTONIC_USEC={}",
                     static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000));
}

void ServiceManager::stopping() const {
    send("STOPPING=1");
}

void ServiceManager::alive() const {
    send("WATCHDOG=1");
}

void ServiceManager::send(const std::string& lines) const {
    if (socket_ < 0 || address_.empty()) {
        return;
    }
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    std::memcpy(to.sun_path, address_.data(), address_.size());
    if (address_.front() == '@') {
        to.sun_path[0] = '\0';  // a name in the abstract namespace, not a file
    }
    // A manager that cannot be reached must not stop the work.
    (void)!sendto(socket_, lines.data(), lines.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&to),
                  static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size()));
}

}  // namespace quorvane
