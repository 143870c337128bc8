// Byte streams over TCP (IPv4): USock, the client or server end of one connection; Sender, which owns a
// USock; and Listener, for receivers that serve one connection after another.
//
// A connection carries records in their byte form and nothing else: no framing, handshake or acknowledgement.
// Transfers block until they are complete or the host is interrupted. No signal is raised when the peer
// closes the connection.
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
    /// Server: waits for one connection to `port` on any local address. Throws "already bounded!" when the
    /// port is in use, and "listen error".
    explicit USock(std::uint16_t port);
    /// Client: connects to a host name or dotted address. Retries up to three times at intervals of a second;
    /// stays unconnected if all attempts fail or the host is unknown.
    USock(const std::string& host, std::uint16_t port);
    /// Shuts down and closes the connection; data already written is still delivered.
    ~USock() override;
    USock(const USock&) = delete;
    USock& operator=(const USock&) = delete;

    bool isClient() const { return isClient_; }
    /// False if the connection could not be established or has broken.
    bool connected() const { return connected_; }
    /// The system's message for a connection that failed or broke; may be empty.
    const std::string& reason() const { return reason_; }

    /// Does nothing if the connection was never established. Throws "write error" when it breaks and on every
    /// later write.
    void write(const void* bytes, std::size_t length) override;
    void writeGather(std::span<const std::span<const std::byte>> pieces) override;
    /// Throws "read error" when fewer bytes arrive or there is no connection.
    void read(void* bytes, std::size_t length) override;

    static constexpr std::int64_t kClosed = 0, kBroken = -1, kTimedOut = -2;
    /// One receive into `first`, then `second`; bypasses the buffer of read(). Returns the number of bytes or
    /// one of the codes above.
    std::int64_t receiveSome(std::span<std::byte> first, std::span<std::byte> second = {});
    /// How long a receive waits for data; 0: indefinitely.
    void setReceiveTimeout(int milliseconds);

    /// Sends the number of bytes as an unsigned 32-bit integer, then the samples. For receivers that do not
    /// read records.
    void sendSamples(std::span<const std::uint16_t> samples);
    /// Sends the length, terminating zero included, as an unsigned 32-bit integer, then the text and the
    /// zero. Sends nothing when the text is empty or longer than 254 bytes.
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

/// A byte stream that owns its connection, as a client.
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

/// A listening port that accepts connections one at a time.
class Listener
{
  public:
    /// `address` is a local host name or dotted address, or "" for any; with port 0 the system chooses a free
    /// one. Throws the system's message.
    explicit Listener(std::uint16_t port, const std::string& address = "");
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t port() const;
    /// Waits for a connection, with -1 indefinitely. Null on timeout.
    std::unique_ptr<USock> accept(int milliseconds = -1);

  private:
    std::intptr_t socket_ = -1;
};

}  // namespace scansteps
