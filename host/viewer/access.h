// Who may talk to the viewer: checks of the token, the host and the origin of a request.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace scansteps::viewer {

class Access
{
  public:
    /// For a server that listens on `bind`; "0.0.0.0" and "::" are all addresses of this machine.
    explicit Access(std::string bind);
    void setPort(int port);

    const std::string& token() const { return token_; }
    /// Name of the cookie, which browsers share among ports.
    std::string cookieName() const;
    /// Whether a text, such as the value of a parameter, is the token. Takes the same time for any text.
    bool isToken(std::string_view text) const;
    /// Whether a "Cookie" header has the token.
    bool hasToken(std::string_view cookies) const;
    /// Whether a "Host" header names this server by an address, not by a name that anyone's DNS may hand out.
    bool isOwnHost(std::string_view host) const;
    /// Whether an "Origin" header, empty when there is none, is of a page of this server.
    bool isOwnOrigin(std::string_view origin) const;
    /// "http://127.0.0.1:1234/?token=..."
    std::string address() const;

  private:
    std::string bind_, token_;
    int port_ = 0;
};

}  // namespace scansteps::viewer
