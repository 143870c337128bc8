// TCP byte streams on the socket layer.
#include "scansteps/socket.h"

#include <cstdio>
#include <limits>
#include <utility>

#include "core/print.h"
#include "core/socket_layer.h"
#include "core/waits.h"
#include "scansteps/error.h"

namespace scansteps {

namespace {

bool startLibrary()
{
    const bool started = socketlayer::start();
    if (!started) print::line("Socket Initialization Error. Program aborted");
    return started;
}

enum class PortError
{
    Words,  // fixed texts
    Reason  // the system's message
};

[[noreturn]] void refusePort(socketlayer::Socket socket, const char* words, PortError error)
{
    const std::string reason = socketlayer::lastError();
    socketlayer::close(socket);
    if (error == PortError::Reason) failf("%s", reason.c_str());
    fail(words);
}

// A bound and listening socket.
socketlayer::Socket openPort(socketlayer::Address address, int backlog, PortError error)
{
    const auto socket = socketlayer::create();
    if (socket == socketlayer::kNone || !socketlayer::bind(socket, address))
        refusePort(socket, "already bounded!", error);
    if (!socketlayer::listen(socket, backlog)) {
        print::line("listen error");
        refusePort(socket, "listen error", error);
    }
    return socket;
}

// Makes four attempts, one second apart.
socketlayer::Socket connectPatiently(socketlayer::Address address, std::string& reason)
{
    for (int attempt = 1;; ++attempt) {
        // On some systems, a socket cannot be used again after a failed attempt.
        const auto socket = socketlayer::create();
        if (socket != socketlayer::kNone && socketlayer::connect(socket, address)) return socket;
        reason = socketlayer::lastError();
        socketlayer::close(socket);
        if (attempt == 4) break;
        print::line("result = -1");
        print::line("Connect Error ,retry");
        std::fflush(stdout);
        if (waits::pause(1000) == waits::Wait::Interrupted) break;
    }
    print::line("Connect Error ");
    return socketlayer::kNone;
}

}  // namespace

USock::USock(std::uint16_t port)
{
    if (!startLibrary()) return;
    const auto listening = openPort({0, port}, 1, PortError::Words);
    if (socketlayer::waitReadable(listening, waits::kForever)) socket_ = socketlayer::accept(listening);
    socketlayer::close(listening);
    if (socket_ == socketlayer::kNone) return;
    print::line("accept income");
    connected_ = true;
}

USock::USock(const std::string& host, std::uint16_t port) : isClient_(true)
{
    if (!startLibrary()) return;
    const auto resolved = socketlayer::resolve(host, true);
    if (!resolved) {
        reason_ = "unknown host";
        print::line("!phostent error");
        return;
    }
    print::line("Your Server is " + resolved->name + " " + socketlayer::dotted(resolved->ip));
    socket_ = connectPatiently({resolved->ip, port}, reason_);
    connected_ = socket_ != socketlayer::kNone;
}

USock::USock(std::intptr_t accepted) : socket_(accepted), connected_(true) {}

USock::~USock()
{
    socketlayer::close(socket_);
}

void USock::refuseWrite()
{
    if (connected_) {
        reason_ = socketlayer::lastError();
        connected_ = false;
        broken_ = true;
        socketlayer::close(std::exchange(socket_, socketlayer::kNone));
    }
    fail("write error");
}

void USock::write(const void* bytes, std::size_t length)
{
    const std::span<const std::byte> piece(static_cast<const std::byte*>(bytes), length);
    writeGather({&piece, 1});
}

void USock::writeGather(std::span<const std::span<const std::byte>> pieces)
{
    if (broken_) refuseWrite();
    if (!connected_) return;
    std::vector<std::span<const std::byte>> rest(pieces.begin(), pieces.end());
    std::size_t at = 0;
    const auto skipEmpty = [&] {
        while (at < rest.size() && rest[at].empty()) ++at;
    };
    for (skipEmpty(); at < rest.size(); skipEmpty()) {
        const std::int64_t sent = socketlayer::send(socket_, std::span(rest).subspan(at));
        if (sent <= 0) refuseWrite();
        auto done = static_cast<std::size_t>(sent);
        while (done != 0) {
            const std::size_t part = std::min(done, rest[at].size());
            rest[at] = rest[at].subspan(part);
            done -= part;
            if (rest[at].empty()) ++at;
        }
    }
}

void USock::read(void* bytes, std::size_t length)
{
    if (length == 0) return;
    if (!connected_) fail("read error");
    const auto receive = [this](std::byte* to, std::size_t count, std::byte* ahead, std::size_t aheadCount) {
        return receiveSome({to, count}, {ahead, aheadCount});
    };
    if (ahead_.read(static_cast<std::byte*>(bytes), length, receive) == length) return;
    print::line("-1s");
    fail("read error");
}

std::int64_t USock::receiveSome(std::span<std::byte> first, std::span<std::byte> second)
{
    static_assert(kTimedOut == socketlayer::kTimedOut);
    return connected_ ? socketlayer::receive(socket_, first, second, receiveTimeout_) : kClosed;
}

void USock::setReceiveTimeout(int milliseconds)
{
    receiveTimeout_ = milliseconds > 0 ? milliseconds : waits::kForever;
}

void USock::sendSamples(std::span<const std::uint16_t> samples)
{
    if (samples.size_bytes() > std::numeric_limits<std::uint32_t>::max()) fail("write error");
    const auto length = static_cast<std::uint32_t>(samples.size_bytes());
    const std::span<const std::byte> pieces[] = {std::as_bytes(std::span(&length, 1)),
                                                 std::as_bytes(samples)};
    writeGather(pieces);
}

void USock::sendText(const std::string& text)
{
    if (text.empty() || text.size() + 1 >= 256) return;
    const auto length = static_cast<std::uint32_t>(text.size() + 1);
    const std::span<const std::byte> pieces[] = {std::as_bytes(std::span(&length, 1)),
                                                 std::as_bytes(std::span(text.c_str(), length))};
    writeGather(pieces);
}

std::string USock::peer() const
{
    return connected_ ? socketlayer::dotted(socketlayer::peerAddress(socket_).ip) : "";
}

Listener::Listener(std::uint16_t port, const std::string& address)
{
    if (!startLibrary()) fail("listen error");
    std::uint32_t ip = 0;
    if (!address.empty()) {
        const auto resolved = socketlayer::resolve(address, false);
        if (!resolved) fail("no such host or address");
        ip = resolved->ip;
    }
    constexpr int kWaiting = 128;
    socket_ = openPort({ip, port}, kWaiting, PortError::Reason);
}

Listener::~Listener()
{
    socketlayer::close(socket_);
}

std::uint16_t Listener::port() const
{
    const std::uint16_t port = socketlayer::localAddress(socket_).port;
    if (port == 0) fail("listen error");
    return port;
}

std::unique_ptr<USock> Listener::accept(int milliseconds)
{
    if (!socketlayer::waitReadable(socket_, milliseconds)) return nullptr;
    const auto accepted = socketlayer::accept(socket_);
    if (accepted == socketlayer::kNone) return nullptr;
    return std::unique_ptr<USock>(new USock(accepted));
}

}  // namespace scansteps
