// The few socket operations that byte streams need, the same over Windows Sockets and BSD sockets. IPv4.
// Every wait ends when the host is interrupted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace scansteps::socketlayer {

using Socket = std::intptr_t;
inline constexpr Socket kNone = -1;

struct Address
{
    std::uint32_t ip = 0;  ///< host byte order; 0: any
    std::uint16_t port = 0;
};

struct Resolved
{
    std::uint32_t ip;
    std::string name;  ///< as the resolver has it
};

/// Starts the socket library (version 2.0), once. False when it cannot be.
bool start();
/// Dotted address or host name. With `withName`, the name of a dotted address is looked up; it is the
/// address where there is none.
std::optional<Resolved> resolve(const std::string& host, bool withName);
std::string dotted(std::uint32_t ip);

/// What the system says of the last operation that failed.
std::string lastError();

Socket create();
/// False when the address is taken.
bool bind(Socket socket, Address address);
bool listen(Socket socket, int backlog);
Socket accept(Socket socket);
/// Gives up after about ten seconds without an answer.
bool connect(Socket socket, Address address);
Address localAddress(Socket socket);
Address peerAddress(Socket socket);
/// True when something can be received or accepted within that time; -1: for ever.
bool waitReadable(Socket socket, int milliseconds);

/// One send of at most the first 64 pieces, without a signal when the peer is gone. Bytes sent, 0 or less on
/// an error.
std::int64_t send(Socket socket, std::span<const std::span<const std::byte>> pieces);
inline constexpr std::int64_t kTimedOut = -2;
/// One receive into the first place, then the second. 0 when the peer has closed, -1 on an error, kTimedOut
/// when nothing came in that time (-1: for ever) or before an interrupt.
std::int64_t receive(Socket socket, std::span<std::byte> first, std::span<std::byte> second,
                     int milliseconds = -1);
/// Shuts both directions down and closes.
void close(Socket socket);

}  // namespace scansteps::socketlayer
