// Byte streams over TCP: USock, client or server end of one connection, Sender, which owns a USock, and
// Listener, for receivers that serve one connection after the other. IPv4.
//
// The peer of a connection gets records in their byte form, one after the other, and nothing else: no
// framing, no handshake, no acknowledgement. All transfers block until the host is interrupted. No signal is
// raised when the peer goes away.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "scansteps/stream.h"

namespace scansteps {

class USock : public BIO
{
  public:
    /// Server: waits for one connection to `port` of any local address. Throws "already bounded!" when the
    /// port is taken and "listen error".
    explicit USock(std::uint16_t port);
    /// Client: connects to a host name or dotted address. When nobody answers it tries three times more, with
    /// a second between, and stays unconnected after that; so it does when the host is unknown.
    USock(const std::string& host, std::uint16_t port);
    /// Shuts the connection down and closes it; what was written still reaches the peer.
    ~USock() override;
    USock(const USock&) = delete;
    USock& operator=(const USock&) = delete;

    bool isClient() const { return isClient_; }
    /// False when no connection came about, and after one broke.
    bool connected() const { return connected_; }
    /// What the system said of the connection that did not come about or broke; "" when it said nothing.
    const std::string& reason() const { return reason_; }

    /// Does nothing when no connection came about. Throws "write error" when the peer is gone, then and on
    /// every later write.
    void write(const void* bytes, std::size_t length) override;
    void writeGather(std::span<const std::span<const std::byte>> pieces) override;
    /// Throws "read error" when fewer bytes arrive, also while unconnected.
    void read(void* bytes, std::size_t length) override;

    static constexpr std::int64_t kClosed = 0, kBroken = -1, kTimedOut = -2;
    /// One receive, past what read() keeps: fills the first place, then the second. The number of bytes, or
    /// one of the codes above.
    std::int64_t receiveSome(std::span<std::byte> first, std::span<std::byte> second = {});
    /// How long a receive waits before it gives up; 0: for ever.
    void setReceiveTimeout(int milliseconds);

    /// For receivers of other kinds: the number of bytes as unsigned 32 bit, then the samples.
    void sendSamples(std::span<const std::uint16_t> samples);
    /// The length with the terminating zero as unsigned 32 bit, then the text and the zero. Sends nothing
    /// when the text is empty or longer than 254 bytes.
    void sendText(const std::string& text);

    /// Dotted address of the peer; "" while unconnected.
    std::string peer() const;

  private:
    friend class Listener;
    explicit USock(std::intptr_t accepted);
    [[noreturn]] void refuseWrite();

    std::intptr_t socket_ = -1;
    bool isClient_ = false;
    bool connected_ = false;
    int receiveTimeout_ = -1;
    bool broken_ = false;
    std::string reason_;
    ReadAhead ahead_;
};

/// A byte stream that owns the connection it forwards to.
class Sender : public BIO
{
  public:
    Sender(const std::string& host, std::uint16_t port) : socket_(host, port) {}
    bool connected() const { return socket_.connected(); }
    const std::string& reason() const { return socket_.reason(); }
    void write(const void* bytes, std::size_t length) override { socket_.write(bytes, length); }
    void read(void* bytes, std::size_t length) override { socket_.read(bytes, length); }
    void writeGather(std::span<const std::span<const std::byte>> pieces) override
    {
        socket_.writeGather(pieces);
    }

  private:
    USock socket_;
};

/// A port that accepts connections, one at a time.
class Listener
{
  public:
    /// `address` is a host name or dotted address of this machine, "" any of them; port 0 is a free one that
    /// the system chooses. Throws the system's reason.
    explicit Listener(std::uint16_t port, const std::string& address = "");
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t port() const;
    /// Waits for a connection, -1: for ever. Null when none came in time.
    std::unique_ptr<USock> accept(int milliseconds = -1);

  private:
    std::intptr_t socket_ = -1;
};

}  // namespace scansteps
