// Frames over TCP on loopback, compared with a plain send/recv loop of the same sizes, and the steps that
// move frames in memory, compared with memcpy of as many bytes; alternating in one run. Measures the
// processor time of both ends, so it must run on one core.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "plugin/factories.h"
#include "scansteps/handles.h"
#include "scansteps/socket.h"
#include "scansteps/texture.h"
#include "support/ratio.h"

namespace scansteps {
namespace {

constexpr int kFrames = 16;
constexpr std::size_t kFrameBytes = 640 * 480 * 2;

// A thread that calls `receive` until it returns false, `kFrames` times per turn.
class Peer
{
  public:
    explicit Peer(std::function<bool()> receive)
        : thread_([this, receive] {
              while (receive()) {
                  received_.fetch_add(1);
                  received_.notify_one();
              }
          })
    {
    }
    ~Peer() { thread_.join(); }
    void waitForTurn()
    {
        expected_ += kFrames;
        for (int now = received_.load(); now != expected_; now = received_.load()) received_.wait(now);
    }

  private:
    std::atomic<int> received_{0};
    int expected_ = 0;
    std::thread thread_;
};

bool sendAll(int socket, const std::byte* bytes, std::size_t size)
{
    while (size != 0) {
        const auto sent = ::send(socket, bytes, size, MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes += sent;
        size -= std::size_t(sent);
    }
    return true;
}

bool receiveAll(int socket, std::byte* bytes, std::size_t size)
{
    while (size != 0) {
        const auto got = ::recv(socket, bytes, size, 0);
        if (got <= 0) return false;
        bytes += got;
        size -= std::size_t(got);
    }
    return true;
}

// Both ends of a plain connection.
struct PlainPair
{
    PlainPair()
    {
        const int listening = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(listening, reinterpret_cast<sockaddr*>(&address), length);
        ::listen(listening, 1);
        ::getsockname(listening, reinterpret_cast<sockaddr*>(&address), &length);
        client = ::socket(AF_INET, SOCK_STREAM, 0);
        if (::connect(client, reinterpret_cast<sockaddr*>(&address), length) != 0) std::abort();
        server = ::accept(listening, nullptr, nullptr);
        ::close(listening);
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    int client, server;
};

void overTcp(benchmark::State& state)
{
    Array frame(Kind::Ushort, 640, 480);
    const varitype record = Struct{{"eventType", 1002}, {"handle", 1}};
    BIOmem bytes;
    writeRecordWithFrame(bytes, record, frame);
    const std::size_t size = bytes.bytes().size();

    Listener listener(0, "127.0.0.1");
    auto client = std::make_unique<USock>("127.0.0.1", listener.port());
    const auto server = listener.accept();
    const PlainPair plain;
    std::vector<std::byte> buffer(size);
    {
        Array spare;
        Peer ours([&] {
            try {
                varitype received = readRecord(*server, {}, &spare);
                spare = std::move(received["data"].getv<Array>());
                return true;
            } catch (const char*) {
                return false;
            }
        });
        Peer peers([&] { return receiveAll(plain.server, buffer.data(), size); });
        bench::compare(
            state, kFrames * 640.0 * 480.0, "of_send_recv",
            [&] {
                for (int i = 0; i < kFrames; ++i) writeRecordWithFrame(*client, record, frame);
                ours.waitForTurn();
            },
            [&] {
                for (int i = 0; i < kFrames; ++i) sendAll(plain.client, bytes.bytes().data(), size);
                peers.waitForTurn();
            });
        client.reset();
        ::close(plain.client);
    }
    ::close(plain.server);
}
BENCHMARK(overTcp)->Iterations(61)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Process events of a step with a frame of the host, compared with memcpy of `bytes` bytes to one of `places`
// buffers in turn.
void inMemory(benchmark::State& state, const char* name, Struct settings, std::size_t bytes,
              std::size_t places)
{
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    {
        const auto own = createTexture(format::kU1x16, 640, 480);
        const auto step = plugin::createStep(name);
        settings.set("eventType", 1001);
        settings.set("dataX", 640);
        settings.set("dataY", 480);
        settings.set("dataFormat", "CPU::u_1x16");
        varitype init(settings);
        step->dispatch(init);
        varitype process = Struct{{"eventType", 1002}, {"handle", int(own->handle)}};
        const std::vector<std::byte> from(bytes, std::byte{1});
        std::vector<std::vector<std::byte>> to(places, from);
        std::size_t turn = 0;
        bench::compare(
            state, 640.0 * 480.0, "of_memcpy", [&] { step->dispatch(process); },
            [&] {
                auto& place = to[turn++ % places];
                std::memcpy(place.data(), from.data(), bytes);
                benchmark::DoNotOptimize(place.data());
            });
    }
    installHandles(nullptr);
}

void combine(benchmark::State& state)
{
    const int factor = int(state.range(0));
    inMemory(state, "c2ima", {{"combine", Struct{{"factor", factor}}}}, std::size_t(factor) * kFrameBytes, 1);
}
BENCHMARK(combine)->Arg(2)->Arg(4)->Arg(8)->Iterations(41)->UseManualTime()->Unit(benchmark::kMicrosecond);

void buffer(benchmark::State& state)
{
    const int size = int(state.range(0));
    inMemory(state, "cbuff", {{"Buff", Struct{{"Size", size}}}}, kFrameBytes, std::size_t(size));
}
BENCHMARK(buffer)->Arg(1)->Arg(4)->Iterations(41)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace scansteps

BENCHMARK_MAIN();
