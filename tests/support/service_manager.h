#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

/** A service manager's socket, as NOTIFY_SOCKET names it. */
class ListeningManager {
  public:
    explicit ListeningManager(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    ~ListeningManager() { close(socket_); }

    ListeningManager(const ListeningManager&) = delete;
    ListeningManager& operator=(const ListeningManager&) = delete;

    /** The next message; "" while there is none. */
    std::string next() const {
        char text[512];
        const ssize_t count = recv(socket_, text, sizeof text, MSG_DONTWAIT);
        return count < 0 ? "" : std::string(text, static_cast<std::size_t>(count));
    }

    /** Whether a message that begins so is among those that came and were not passed over yet. */
    bool has(const std::string& start) const {
        for (std::string text = next(); !text.empty(); text = next()) {
            if (text.rfind(start, 0) == 0) {
                return true;
            }
        }
        return false;
    }

  private:
    int socket_;
};
