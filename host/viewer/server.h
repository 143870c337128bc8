// The web server of the viewer: hands out the page and connects its WebSocket with the session. One thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "session.h"

namespace scansteps::viewer {

class Server
{
  public:
    /// Listens on `bind` and `port` (0: a free one) and serves until it is destroyed. Throws FileError.
    Server(Session& session, const std::string& bind, std::uint16_t port);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// With the token.
    std::string address() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace scansteps::viewer
