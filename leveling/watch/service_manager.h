#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace quorvane {

/**
 * Reports to the service manager that started this process, by the protocol of sd_notify(3): a
 * datagram of NAME=VALUE lines to the socket that NOTIFY_SOCKET names. Does nothing without one.
 */
class ServiceManager {
  public:
    /** Reads the environment, and removes from it what is meant for this process alone. */
    ServiceManager();
    ~ServiceManager();
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    void ready(const std::string& status) const;
    void status(const std::string& status) const;
    void reloading() const;
    void stopping() const;

    /** How often alive() has to be called, half the manager's limit; none without a watchdog. */
    std::optional<std::chrono::microseconds> alive_every() const { return alive_every_; }

    void alive() const;

  private:
    void send(const std::string& lines) const;

    int socket_ = -1;
    std::string address_;
    std::optional<std::chrono::microseconds> alive_every_;
};

}  // namespace quorvane
