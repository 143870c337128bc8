// Socket operations for byte streams (IPv4), the same for Windows Sockets and BSD sockets. Waits end when the
// host is interrupted.
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
    std::string name;  ///< as returned by the resolver
};

/// Initialises the socket library (version 2.0) once. False on failure.
bool start();
/// Resolves a host name or dotted address. With `withName`, the name of a dotted address is looked up; it
/// defaults to the address.
std::optional<Resolved> resolve(const std::string& host, bool withName);
std::string dotted(std::uint32_t ip);

/// The system's message for the last failed operation.
std::string lastError();

Socket create();
/// False if the address is in use.
bool bind(Socket socket, Address address);
bool listen(Socket socket, int backlog);
Socket accept(Socket socket);
/// Fails after about ten seconds without an answer.
bool connect(Socket socket, Address address);
Address localAddress(Socket socket);
Address peerAddress(Socket socket);
/// Whether data or a connection arrives within the given time; -1 waits indefinitely.
bool waitReadable(Socket socket, int milliseconds);

/// One send of up to 64 pieces; raises no signal when the peer has closed the connection. Returns the number
/// of bytes, or 0 or less on an error.
std::int64_t send(Socket socket, std::span<const std::span<const std::byte>> pieces);
inline constexpr std::int64_t kTimedOut = -2;
/// One receive into `first`, then `second`. Returns the number of bytes, 0 when the peer has closed the
/// connection, -1 on an error, kTimedOut after the given time (-1: none) or an interruption.
std::int64_t receive(Socket socket, std::span<std::byte> first, std::span<std::byte> second,
                     int milliseconds = -1);
/// Shuts down both directions and closes.
void close(Socket socket);

}  // namespace scansteps::socketlayer
