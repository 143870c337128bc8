// Names of hosts are compared with what can only mean this machine.
#include "access.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <stdexcept>

namespace scansteps::viewer {

namespace {

std::string randomToken()
{
    std::array<unsigned char, 24> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != ssize_t(bytes.size()))
        throw std::runtime_error("the system has no random numbers");
    std::string text;
    for (const unsigned char byte : bytes) text += fmt::format("{:02x}", byte);
    return text;
}

bool isAddress(const std::string& text)
{
    std::array<unsigned char, 16> ignored{};
    if (text.find('\0') != text.npos) return false;  // where C would see the end
    return ::inet_pton(AF_INET, text.c_str(), ignored.data()) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), ignored.data()) == 1;
}

bool isAny(const std::string& bind)
{
    return bind == "0.0.0.0" || bind == "::";
}

std::string lower(std::string_view text)
{
    std::string result(text);
    for (char& c : result) c = char(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string ownName()
{
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? lower(name.data()) : "";
}

}  // namespace

Access::Access(std::string bind) : bind_(std::move(bind)), token_(randomToken()) {}

void Access::setPort(int port)
{
    port_ = port;
}

std::string Access::cookieName() const
{
    return fmt::format("scansteps-{}", port_);
}

bool Access::isToken(std::string_view text) const
{
    unsigned difference = text.size() == token_.size() ? 0 : 1;
    for (std::size_t i = 0; i < token_.size(); ++i)
        difference |= unsigned(static_cast<unsigned char>(token_[i])) ^
                      unsigned(static_cast<unsigned char>(i < text.size() ? text[i] : 0));
    return difference == 0;
}

bool Access::hasToken(std::string_view cookies) const
{
    const std::string name = cookieName() + "=";
    while (!cookies.empty()) {
        const std::size_t end = cookies.find(';');
        std::string_view one = cookies.substr(0, end);
        while (one.starts_with(' ')) one.remove_prefix(1);
        while (one.ends_with(' ')) one.remove_suffix(1);
        if (one.starts_with(name) && isToken(one.substr(name.size()))) return true;
        if (end == std::string_view::npos) break;
        cookies.remove_prefix(end + 1);
    }
    return false;
}

bool Access::isOwnHost(std::string_view given) const
{
    const std::string host = lower(given), port = fmt::format(":{}", port_);
    if (host.size() <= port.size() || !host.ends_with(port)) return false;
    std::string name = host.substr(0, host.size() - port.size());
    const bool isBracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
    if (isBracketed) name = name.substr(1, name.size() - 2);
    if (name.find(':') != std::string::npos && !isBracketed) return false;
    if (name == "localhost" || name == "127.0.0.1" || name == "::1" || name == bind_) return true;
    return isAny(bind_) && (isAddress(name) || (!name.empty() && name == ownName()));
}

bool Access::isOwnOrigin(std::string_view origin) const
{
    constexpr std::string_view kScheme = "http://";
    return origin.empty() || (origin.starts_with(kScheme) && isOwnHost(origin.substr(kScheme.size())));
}

std::string Access::address() const
{
    std::string host = isAny(bind_) ? ownName() : bind_;
    if (host.empty()) host = "127.0.0.1";
    if (host.find(':') != std::string::npos) host = "[" + host + "]";
    return fmt::format("http://{}:{}/?token={}", host, port_, token_);
}

}  // namespace scansteps::viewer
