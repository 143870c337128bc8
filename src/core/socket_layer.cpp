// Windows Sockets and BSD sockets behind one interface.
#include "core/socket_layer.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "core/waits.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace scansteps::socketlayer {

namespace {

constexpr std::size_t kMaxPieces = 64;
constexpr int kConnectMs = 10000;

#ifdef _WIN32

constexpr std::size_t kMaxTransfer = std::size_t{1} << 30;

SOCKET native(Socket socket)
{
    return static_cast<SOCKET>(socket);
}

bool interrupted()
{
    return false;
}

bool wouldBlock()
{
    return WSAGetLastError() == WSAEWOULDBLOCK;
}

bool connecting()
{
    return wouldBlock();
}

void setNonBlocking(SOCKET socket)
{
    u_long on = 1;
    (void)ioctlsocket(socket, FIONBIO, &on);
}

int closeNative(SOCKET socket)
{
    return closesocket(socket);
}

void setLastError(int error)
{
    WSASetLastError(error);
}

constexpr int kTimeOut = WSAETIMEDOUT, kInterruption = WSAEINTR;
constexpr int kShutBoth = SD_BOTH;
constexpr int kCloseOnExec = 0;
using OptionLength = int;

#else

int native(Socket socket)
{
    return static_cast<int>(socket);
}

bool interrupted()
{
    return errno == EINTR;
}

bool wouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

bool connecting()
{
    return errno == EINPROGRESS || errno == EINTR;
}

void setNonBlocking(int socket)
{
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags >= 0) (void)::fcntl(socket, F_SETFL, flags | O_NONBLOCK);
}

int closeNative(int socket)
{
    return ::close(socket);
}

void setLastError(int error)
{
    errno = error;
}

constexpr int kTimeOut = ETIMEDOUT, kInterruption = EINTR;
constexpr int kShutBoth = SHUT_RDWR;
#ifdef SOCK_CLOEXEC
constexpr int kCloseOnExec = SOCK_CLOEXEC;
#else
constexpr int kCloseOnExec = 0;
#endif
using OptionLength = socklen_t;

#endif

template <class T>
void setOption(Socket socket, int level, int name, const T& value)
{
    // Errors are ignored: the options are optimisations, and a system without one still works.
    (void)::setsockopt(native(socket), level, name, reinterpret_cast<const char*>(&value),
                       static_cast<OptionLength>(sizeof value));
}

// Options of connected sockets: no delay before sending, no signal when the peer closes the connection, and
// non-blocking calls, so that waits can be interrupted.
void prepareConnected(Socket socket)
{
    setNonBlocking(native(socket));
    setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
#ifdef SO_NOSIGPIPE
    setOption(socket, SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
}

sockaddr_in nativeAddress(Address address)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(address.port);
    result.sin_addr.s_addr = htonl(address.ip);
    return result;
}

template <class Get>
Address addressBy(Get get)
{
    sockaddr_in address{};
    OptionLength length = sizeof address;
    if (get(reinterpret_cast<sockaddr*>(&address), &length) != 0) return {};
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

std::string nameOf(const sockaddr_in& address, const std::string& fallback)
{
    char name[NI_MAXHOST];
    const int result = ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, name,
                                     sizeof name, nullptr, 0, NI_NAMEREQD);
    return result == 0 ? name : fallback;
}

std::optional<Resolved> lookUp(const std::string& host, int flags, bool withName)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return std::nullopt;
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    std::string name = found->ai_canonname != nullptr ? found->ai_canonname : host;
    ::freeaddrinfo(found);
    if (flags == AI_NUMERICHOST && withName) name = nameOf(address, host);
    return Resolved{ntohl(address.sin_addr.s_addr), std::move(name)};
}

}  // namespace

bool start()
{
#ifdef _WIN32
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 0), &data) == 0;
    }();
    return started;
#else
    return true;
#endif
}

std::optional<Resolved> resolve(const std::string& host, bool withName)
{
    if (auto numeric = lookUp(host, AI_NUMERICHOST, withName)) return numeric;
    return lookUp(host, AI_CANONNAME, withName);
}

std::string dotted(std::uint32_t ip)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(ip >> shift & 255U) + (shift != 0 ? "." : "");
    return text;
}

std::string lastError()
{
#ifdef _WIN32
    return std::system_category().message(WSAGetLastError());
#else
    return std::generic_category().message(errno);
#endif
}

Socket create()
{
    const auto created = static_cast<Socket>(::socket(AF_INET, SOCK_STREAM | kCloseOnExec, IPPROTO_TCP));
    if (created != kNone) setNonBlocking(native(created));
    return created;
}

bool bind(Socket socket, Address address)
{
    // A port must not be shared with another listener, but may be reused while old connections linger.
#ifdef _WIN32
    setOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
#else
    setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
#endif
    const sockaddr_in local = nativeAddress(address);
    return ::bind(native(socket), reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
}

bool listen(Socket socket, int backlog)
{
    return ::listen(native(socket), backlog) == 0;
}

Socket accept(Socket socket)
{
    for (;;) {
        const auto accepted = static_cast<Socket>(::accept(native(socket), nullptr, nullptr));
        if (accepted == kNone && interrupted()) continue;
        if (accepted != kNone) prepareConnected(accepted);
        return accepted;
    }
}

bool connect(Socket socket, Address address)
{
    const sockaddr_in remote = nativeAddress(address);
    if (::connect(native(socket), reinterpret_cast<const sockaddr*>(&remote), sizeof remote) != 0) {
        if (!connecting()) return false;
        int error = kTimeOut;
        OptionLength length = sizeof error;
        if (waits::writable(socket, kConnectMs, 0) == waits::Wait::Ready &&
            ::getsockopt(native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0)
            return false;
        setLastError(error);
        if (error != 0) return false;
    }
    prepareConnected(socket);
    return true;
}

Address localAddress(Socket socket)
{
    return addressBy(
        [&](sockaddr* to, OptionLength* length) { return ::getsockname(native(socket), to, length); });
}

Address peerAddress(Socket socket)
{
    return addressBy(
        [&](sockaddr* to, OptionLength* length) { return ::getpeername(native(socket), to, length); });
}

bool waitReadable(Socket socket, int milliseconds)
{
    return waits::readable(socket, milliseconds) == waits::Wait::Ready;
}

namespace {

// One transfer. Returns the number of bytes, or -1 on an error.
std::int64_t sendOnce(Socket socket, std::span<const std::span<const std::byte>> pieces)
{
    const std::size_t count = std::min(pieces.size(), kMaxPieces);
#ifdef _WIN32
    WSABUF parts[kMaxPieces];
    DWORD used = 0;
    for (bool whole = true; whole && used < count; ++used) {
        const auto& piece = pieces[used];
        whole = piece.size() <= kMaxTransfer;
        parts[used] = {static_cast<ULONG>(std::min(piece.size(), kMaxTransfer)),
                       reinterpret_cast<char*>(const_cast<std::byte*>(piece.data()))};
    }
    DWORD sent = 0;
    return ::WSASend(native(socket), parts, used, &sent, 0, nullptr, nullptr) == 0 ? std::int64_t{sent} : -1;
#else
    iovec parts[kMaxPieces];
    for (std::size_t i = 0; i < count; ++i)
        parts[i] = {const_cast<std::byte*>(pieces[i].data()), pieces[i].size()};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
#ifdef MSG_NOSIGNAL
    constexpr int kFlags = MSG_NOSIGNAL;
#else
    constexpr int kFlags = 0;
#endif
    return ::sendmsg(native(socket), &message, kFlags);
#endif
}

std::int64_t receiveOnce(Socket socket, std::span<std::byte> first, std::span<std::byte> second)
{
#ifdef _WIN32
    WSABUF parts[2] = {
        {static_cast<ULONG>(std::min(first.size(), kMaxTransfer)), reinterpret_cast<char*>(first.data())},
        {static_cast<ULONG>(first.size() > kMaxTransfer ? 0 : second.size()),
         reinterpret_cast<char*>(second.data())}};
    DWORD received = 0, flags = 0;
    const int result =
        WSARecv(native(socket), parts, second.empty() ? 1 : 2, &received, &flags, nullptr, nullptr);
    return result == 0 ? std::int64_t{received} : -1;
#else
    iovec parts[2] = {{first.data(), first.size()}, {second.data(), second.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = second.empty() ? 1 : 2;
    return ::recvmsg(native(socket), &message, 0);
#endif
}

}  // namespace

std::int64_t send(Socket socket, std::span<const std::span<const std::byte>> pieces)
{
    for (;;) {
        const std::int64_t sent = sendOnce(socket, pieces);
        if (sent >= 0) return sent;
        if (interrupted()) continue;
        if (!wouldBlock()) return -1;
        if (waits::writable(socket) != waits::Wait::Interrupted) continue;
        setLastError(kInterruption);
        return -1;
    }
}

std::int64_t receive(Socket socket, std::span<std::byte> first, std::span<std::byte> second, int milliseconds)
{
    for (;;) {
        const std::int64_t received = receiveOnce(socket, first, second);
        if (received >= 0) return received;
        if (interrupted()) continue;
        if (!wouldBlock()) return -1;
        if (waits::readable(socket, milliseconds) != waits::Wait::Ready) return kTimedOut;
    }
}

void close(Socket socket)
{
    if (socket == kNone) return;
    (void)::shutdown(native(socket), kShutBoth);
    (void)closeNative(native(socket));
}

}  // namespace scansteps::socketlayer
