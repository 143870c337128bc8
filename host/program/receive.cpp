// scansteps receive: the receiver of the sender step. Serves several connections at once and records the runs
// that arrive. A client that vanishes, sends garbage or stays silent loses its own run and affects no other.
#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <limits>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "commands.h"
#include "interrupts.h"
#include "library/platform.h"
#include "output.h"
#include "receive_store.h"
#include "scansteps/chain.h"
#include "scansteps/host.h"
#include "scansteps/host_services.h"
#include "scansteps/socket.h"

namespace scansteps::host {

namespace {

// No real record has this many values; an entry takes many times its size in memory.
constexpr std::uint64_t kMaxValues = 1000000;
constexpr int kSliceMs = 200;      // interval at which a wait checks for an interrupt
constexpr double kMinSpeed = 1e6;  // bytes per second at which a record has to arrive

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The connection as a stream that throws when the peer is silent or slow for too long.
class Incoming : public BIO
{
  public:
    Incoming(USock& socket, const ReceiveOptions& options, const std::atomic<bool>& ended)
        : socket_(socket), options_(options), ended_(ended)
    {
        socket_.setReceiveTimeout(kSliceMs);
    }

    /// Waits for a record to begin. False when the peer closed between two records; other endings are thrown.
    bool beginRecord()
    {
        tooLate_ = "idle for too long";
        deadline_ = options_.maxPause > 0 ? now() + options_.maxPause : kNever;
        const bool more = ahead_.fill([this](std::byte* to, std::size_t count) { return wait({to, count}); });
        if (!more && ending_ != nullptr) throw ending_;
        tooLate_ = "a record took too long";
        deadline_ = now() + options_.idleTimeout;
        atHeader_ = true;
        return more;
    }
    void read(void* bytes, std::size_t length) override
    {
        const auto receive = [this](std::byte* to, std::size_t count, std::byte* ahead, std::size_t more) {
            return wait({to, count}, {ahead, more});
        };
        if (ahead_.read(static_cast<std::byte*>(bytes), length, receive) != length)
            throw ending_ != nullptr ? ending_ : "the connection broke off within a record";
        if (std::exchange(atHeader_, false)) noteSize(bytes, length);
    }
    void write(const void* bytes, std::size_t length) override { socket_.write(bytes, length); }

  private:
    static constexpr double kNever = std::numeric_limits<double>::infinity();

    // A record is read from its header on, which begins with its size and its kind.
    void noteSize(const void* header, std::size_t length)
    {
        struct
        {
            std::uint64_t size;
            std::uint32_t kind;
        } begin{};
        std::memcpy(&begin, header, std::min(length, sizeof begin.size + sizeof begin.kind));
        if (begin.kind != std::uint32_t(Kind::Struct)) return;
        if (begin.size > options_.maxRecord) throw "a record is larger than --max-record";
        deadline_ += double(begin.size) / kMinSpeed;
    }

    // The deadline is checked before every receive: a byte now and then does not keep a connection alive.
    std::int64_t wait(std::span<std::byte> first, std::span<std::byte> second = {})
    {
        for (;;) {
            if (interrupted()) ending_ = "interrupted";
            if (ended_) ending_ = "the receiver has ended";
            if (ending_ == nullptr && now() > deadline_) ending_ = tooLate_;
            if (ending_ != nullptr) return USock::kBroken;
            const std::int64_t got = socket_.receiveSome(first, second);
            if (got == USock::kBroken) ending_ = "the connection broke";
            if (got != USock::kTimedOut) return got;
        }
    }

    USock& socket_;
    const ReceiveOptions& options_;
    const std::atomic<bool>& ended_;
    ReadAhead ahead_;
    bool atHeader_ = false;
    double deadline_ = kNever;
    const char* tooLate_ = "";
    const char* ending_ = nullptr;
};

// The waits of the program's own files and sockets end on interrupts, as those of steps do in a run.
class InterruptibleWaits
{
  public:
    InterruptibleWaits()
    {
        services_.interrupted = [](void*) { return interrupted(); };
        services_.wake = interruptWake();
        installHostServices(table_, &services_);
        installHandles(&table_);
    }
    ~InterruptibleWaits() { installHandles(nullptr); }
    InterruptibleWaits(const InterruptibleWaits&) = delete;
    InterruptibleWaits& operator=(const InterruptibleWaits&) = delete;

  private:
    HandleTable table_;
    HostServices services_;
};

bool isEvent(const varitype& record, int type)
{
    return record.has("eventType") && record["eventType"].kind() == Kind::Int &&
           record["eventType"].as<std::int32_t>() == type;
}

// The recording of one run, created with its first record: a client that sends none leaves no file.
class Recorder
{
  public:
    /// `number` is the one reserved for it; 0 is none.
    Recorder(ReceiveStore& store, std::uint64_t number) : store_(store), number_(number) {}
    ~Recorder()
    {
        if (number_ != 0 && !file_) store_.release(number_);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void append(const varitype& record)
    {
        store_.charge(recordSize(record));
        if (records_ == 0) {
            if (number_ == 0) number_ = store_.reserve();
            file_ = store_.create(number_);
        }
        if (file_)
            named([&] {
                writeRecord(*file_, record);
                if (records_ == 0) file_->commit();
            });
        ++records_;
    }
    void close()
    {
        if (file_) named([&] { file_->close(); });
    }
    std::uint64_t records() const { return records_; }
    std::string summary() const
    {
        return fmt::format("{} records{}", records_, file_ ? " in " + file_->path() : "");
    }

  private:
    template <class Work>
    void named(Work work)
    {
        try {
            work();
        } catch (const char* text) {
            if (records_ == 0) ReceiveStore::removeEmpty(*file_);
            throw FileError{fmt::format("{}: {}: {}", file_->path(), text, file_->reason())};
        }
    }

    ReceiveStore& store_;
    std::uint64_t number_;
    std::unique_ptr<BIOfs> file_;
    std::uint64_t records_ = 0;
};

class Receiver
{
  public:
    explicit Receiver(const ReceiveOptions& options) : options_(options), store_(options) {}

    int serve()
    {
        const auto listener = listen();
        say("listening on {}:{}", options_.bind, listener->port());
        std::vector<std::future<void>> clients;
        const Ending ending{ended_};  // before waiting for the clients
        while (!interrupted() && !ended_) {
            std::erase_if(clients, [](std::future<void>& client) {
                return client.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
            });
            if (clients.size() >= options_.clients || begun_) {  // those who connect now wait
                std::this_thread::sleep_for(std::chrono::milliseconds(kSliceMs / 10));
                continue;
            }
            if (auto socket = listener->accept(kSliceMs)) begin(clients, std::move(socket));
        }
        return outcome_ >= 0 ? outcome_.load() : int{kInterrupted};
    }

  private:
    struct Ending
    {
        std::atomic<bool>& ended;
        ~Ending() { ended = true; }
    };

    std::unique_ptr<Listener> listen() const
    {
        try {
            return std::make_unique<Listener>(options_.port, options_.bind);
        } catch (const char* text) {
            throw FileError{fmt::format("cannot listen on {}:{}: {}", options_.bind, options_.port, text)};
        }
    }

    void begin(std::vector<std::future<void>>& clients, std::unique_ptr<USock> socket)
    {
        // Of one run there is one recording, with the name that was given, whoever connected first.
        const std::uint64_t number = options_.once ? 0 : store_.reserve();
        const std::string peer = socket->peer();
        try {
            clients.push_back(std::async(std::launch::async, [=, this, client = std::move(socket)] {
                serveClient(*client, peer, number);
            }));
        } catch (const std::system_error& error) {
            if (number != 0) store_.release(number);
            say("{} was turned away: {}", peer, error.what());
        }
    }

    void serveClient(USock& socket, const std::string& peer, std::uint64_t number)
    {
        say("{} connected", peer);
        Incoming incoming(socket, options_, ended_);
        while (receiveRun(incoming, peer, std::exchange(number, 0)) && !options_.once)
            ;
    }

    // Whether a run came and is complete.
    bool receiveRun(Incoming& incoming, const std::string& peer, std::uint64_t number)
    {
        Recorder recorder(store_, number);
        std::string ending = "closed before the end of the run";
        bool complete = false, isTheOne = false;
        try {
            Array spare;
            while (!complete && incoming.beginRecord()) {
                varitype record = readRecord(incoming, {options_.maxRecord, kMaxValues}, &spare);
                if (options_.once && !isTheOne) {
                    if (begun_.exchange(true)) throw "another run has begun before";
                    isTheOne = true;
                }
                recorder.append(record);
                complete = isEvent(record, event::kFlush);
                if (record.has("data") && record["data"].kind() == Kind::Array)
                    spare = std::move(record["data"].getv<Array>());
            }
            recorder.close();
        } catch (const char* text) {
            ending = text;
        } catch (const FileError& error) {
            ending = error.what();
            complete = false;
        } catch (const std::exception& error) {
            ending = error.what();
        }
        if (isTheOne) {
            outcome_ = complete ? kEnded : interrupted() ? kInterrupted : kFileFailed;
            ended_ = true;
        }
        if (recorder.records() == 0)
            say("{} left without a record: {}", peer, ending);
        else
            say("{}: {}{}", peer, recorder.summary(), complete ? "" : "; " + ending);
        return complete;
    }

    const ReceiveOptions& options_;
    ReceiveStore store_;
    std::atomic<bool> begun_ = false;  // with --once: the run that is recorded
    std::atomic<bool> ended_ = false;
    std::atomic<int> outcome_ = -1;  // of that run
};

}  // namespace

int receive(const ReceiveOptions& options)
{
    if (options.bind.empty()) throw UsageError{"--bind needs an address; 0.0.0.0 is all of this machine"};
    catchInterrupts();
    const InterruptibleWaits waits;
    return Receiver(options).serve();
}

}  // namespace scansteps::host
