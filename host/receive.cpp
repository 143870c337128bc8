// scansteps receive: the receiver of the sender step. Serves one connection after the other and records the
// runs that arrive. A client may vanish, send rubbish or say nothing: it costs its own run, not the receiver.
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <optional>

#include "commands.h"
#include "outcome.h"
#include "scansteps/chain.h"
#include "scansteps/socket.h"
#include "system.h"

namespace scansteps::host {

namespace {

// A record of this many values would be no frame of anybody's; entries cost many times the memory of their
// bytes.
constexpr std::uint64_t kMostValues = 1000000;
constexpr int kSliceMs = 200;  // how often a wait looks for an interrupt

template <class... Values>
void say(fmt::format_string<Values...> format, Values&&... values)
{
    fmt::print(stderr, "scansteps: {}\n", fmt::format(format, std::forward<Values>(values)...));
    std::fflush(stderr);
}

// The connection as a stream that ends, with a word, on a peer that is silent for too long.
class Incoming : public BIO
{
  public:
    Incoming(USock& socket, double idleSeconds) : socket_(socket), idleSeconds_(idleSeconds)
    {
        socket_.setReceiveTimeout(kSliceMs);
    }

    void write(const void* bytes, std::size_t length) override { socket_.write(bytes, length); }
    void read(void* bytes, std::size_t length) override
    {
        const auto receive = [this](std::byte* to, std::size_t count, std::byte* ahead, std::size_t more) {
            return wait({to, count}, {ahead, more});
        };
        if (ahead_.read(static_cast<std::byte*>(bytes), length, receive) != length)
            throw ending_ != nullptr ? ending_ : "the connection broke off within a record";
    }
    /// True when the peer has closed between two records; other endings are thrown.
    bool atEnd()
    {
        const bool more = ahead_.fill([this](std::byte* to, std::size_t count) { return wait({to, count}); });
        if (!more && ending_ != nullptr) throw ending_;
        return !more;
    }

  private:
    std::int64_t wait(std::span<std::byte> first, std::span<std::byte> second = {})
    {
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        for (;;) {
            const std::int64_t got = socket_.receiveSome(first, second);
            if (got == USock::kBroken) ending_ = "the connection broke";
            if (got != USock::kTimedOut) return got;
            if (interrupted())
                ending_ = "interrupted";
            else if (Clock::now() - start >= std::chrono::duration<double>(idleSeconds_))
                ending_ = "idle for too long";
            if (ending_ != nullptr) return USock::kBroken;
        }
    }

    USock& socket_;
    double idleSeconds_;
    ReadAhead ahead_;
    const char* ending_ = nullptr;
};

// The recording of one run, created with its first record, so that a client without one leaves no trace.
class Recorder
{
  public:
    explicit Recorder(std::string path) : path_(std::move(path)) {}

    void append(const varitype& record)
    {
        ++records_;
        if (path_.empty()) return;
        try {
            if (!file_) file_ = std::make_unique<BIOfs>(path_, BIOfs::Mode::Write);
            writeRecord(*file_, record);
        } catch (const char* text) {
            throw FileError{fmt::format("{}: {}", path_, text)};
        }
    }
    void close()
    {
        try {
            if (file_) file_->close();
        } catch (const char* text) {
            throw FileError{fmt::format("{}: {}", path_, text)};
        }
    }
    std::uint64_t records() const { return records_; }
    std::string summary() const
    {
        return fmt::format("{} records{}", records_, path_.empty() ? "" : " in " + path_);
    }

  private:
    std::string path_;
    std::unique_ptr<BIOfs> file_;
    std::uint64_t records_ = 0;
};

class Receiver
{
  public:
    explicit Receiver(const ReceiveOptions& options) : options_(options) {}

    int serve()
    {
        // Known at once, not when the first client has come.
        const auto folder = pathFromUtf8(options_.out).parent_path();
        if (!folder.empty() && !std::filesystem::is_directory(folder))
            throw FileError{fmt::format("cannot write {}", options_.out)};
        Listener listener(options_.port, options_.bind);
        say("listening on {}:{}", options_.bind, listener.port());
        while (!interrupted()) {
            const auto socket = listener.accept(kSliceMs);
            if (!socket) continue;
            const std::string peer = socket->peer();
            say("{} connected", peer);
            Incoming incoming(*socket, options_.idleTimeout);
            while (const auto ended = receiveRun(incoming, peer)) {
                if (options_.once) return *ended;
                if (*ended != kEnded) break;
            }
        }
        return kInterrupted;
    }

  private:
    // How the run ended, or nothing when no record came.
    std::optional<int> receiveRun(Incoming& incoming, const std::string& peer)
    {
        Recorder recorder(nextPath());
        std::string ending = "closed before the end of the run";
        bool complete = false;
        try {
            Array spare;
            while (!complete && !incoming.atEnd()) {
                varitype record = readRecord(incoming, {options_.maxRecord, kMostValues}, &spare);
                recorder.append(record);
                complete = isEvent(record, event::kFlush);
                if (record.has("data") && record["data"].kind() == Kind::Array)
                    spare = std::move(record["data"].getv<Array>());
            }
        } catch (const char* text) {
            ending = text;
        }
        recorder.close();
        if (recorder.records() == 0) {
            say("{} left without a record: {}", peer, ending);
            return interrupted() ? std::optional<int>(kInterrupted) : std::nullopt;
        }
        ++runs_;
        say("{}: {}{}", peer, recorder.summary(), complete ? "" : "; " + ending);
        if (interrupted() && !complete) return kInterrupted;
        return complete ? kEnded : kFileFailed;
    }

    static bool isEvent(const varitype& record, int type)
    {
        return record.has("eventType") && record["eventType"].kind() == Kind::Int &&
               record["eventType"].as<std::int32_t>() == type;
    }

    // The name that was given, then the same with -2, -3 and so on before its extension.
    std::string nextPath() const
    {
        if (options_.out.empty() || runs_ == 0) return options_.out;
        auto path = pathFromUtf8(options_.out);
        const std::string stem = utf8FromPath(path.stem()), extension = utf8FromPath(path.extension());
        for (std::uint64_t number = runs_ + 1;; ++number) {
            path.replace_filename(pathFromUtf8(fmt::format("{}-{}{}", stem, number, extension)));
            if (!std::filesystem::exists(path)) return utf8FromPath(path);
        }
    }

    const ReceiveOptions& options_;
    std::uint64_t runs_ = 0;
};

}  // namespace

int receive(const ReceiveOptions& options)
{
    catchInterrupts();
    return Receiver(options).serve();
}

}  // namespace scansteps::host
