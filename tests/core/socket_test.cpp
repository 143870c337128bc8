// Byte streams over real loopback connections, and the sender step at one end of them.
#include "scansteps/socket.h"

#include "support/test.h"

namespace scansteps {
namespace {

// Receives on its own thread until the sender closes.
class Receiver
{
  public:
    explicit Receiver(std::chrono::microseconds pause = {}) : listener_(0, "127.0.0.1")
    {
        thread_ = std::thread([this, pause] {
            const auto socket = listener_.accept(10000);
            if (!socket) return;
            std::vector<std::byte> part(100000);
            for (std::int64_t got = 0; (got = socket->receiveSome(part)) > 0;) {
                bytes_.insert(bytes_.end(), part.begin(), part.begin() + got);
                std::this_thread::sleep_for(pause);
            }
        });
    }
    ~Receiver()
    {
        if (thread_.joinable()) thread_.join();
    }
    int port() const { return listener_.port(); }
    std::vector<std::byte> bytes()
    {
        thread_.join();
        return bytes_;
    }

  private:
    Listener listener_;
    std::vector<std::byte> bytes_;
    std::thread thread_;
};

std::string text(std::span<const std::byte> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Struct initFor(int port, const std::string& file)
{
    return geometryOf(
        64, 48,
        {{"save", Struct{{"name", file}}}, {"sender", Struct{{"host", "127.0.0.1"}, {"port", port}}}});
}

TEST(CPUSender, SendsWhatARecorderWrites)
{
    const TempDir dir;
    Receiver receiver;
    {
        Chain chain({"sender", "filesaver"});
        chain.init(initFor(receiver.port(), dir / "run.rec"));
        for (int i = 0; i < 5; ++i) {
            const Array frame = countingFrame(64, 48, i);
            chain.process(&frame, {{"number", i}});
        }
        varitype own = Struct{{"eventType", 2000}, {"text", "own"}};
        chain.send(own);
        EXPECT_NE(printed([&] { chain.flush(); }).find("sender::flush:: time = "), std::string::npos);
        EXPECT_EQ(chain.arrived.size(), 8U);
    }
    EXPECT_EQ(text(receiver.bytes()), readFile(dir / "run.rec"));
}

TEST(CPUSender, SendsTheInitRecordAsItCameWhenTheFormatIsUnknown)
{
    const TempDir dir;
    Receiver receiver;
    {
        Chain chain({"sender"});
        Struct init = initFor(receiver.port(), dir / "run.rec");
        init.remove("dataFormat");
        chain.init(init);
        EXPECT_EQ(chain.arrived[0].eventType, 1004);
    }
    const auto bytes = receiver.bytes();
    BIOmem in(bytes);
    EXPECT_EQ(readRecord(in)["eventType"].as<int>(), 1001);
}

TEST(CPUSender, WithoutAReceiverTheRunGoesOn)
{
    int port = 0;
    {
        const Listener closed(0, "127.0.0.1");
        port = closed.port();
    }
    Chain chain({"sender"});
    const auto start = std::chrono::steady_clock::now();
    const std::string out = printed([&] { chain.init(initFor(port, "")); });
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900));
    const std::string retry = "result = -1\nConnect Error ,retry\n";
    EXPECT_NE(out.find(" 127.0.0.1\n" + retry + retry + retry + "Connect Error \n"), std::string::npos)
        << out;
    const Array frame = countingFrame(64, 48, 1);
    chain.process(&frame);
    chain.flush();
    EXPECT_EQ(chain.arrived.size(), 3U);
    ASSERT_EQ(chain.notices.size(), 3U);
    for (const KeptNotice& each : chain.notices) {
        EXPECT_EQ(each.trouble, Trouble::RecordNotSent);
        EXPECT_EQ(each.file, "127.0.0.1:" + std::to_string(port));
        EXPECT_NE(each.reason, "");
    }
}

TEST(CPUSender, UnknownHostLeavesItUnconnected)
{
    const std::string out = printed([] {
        const USock socket("no.such.host.invalid", 9);
        EXPECT_FALSE(socket.connected());
    });
    EXPECT_EQ(out, "!phostent error\n");
}

TEST(CPUSender, ReceiverThatGoesAwayIsAWriteErrorOfEveryLaterEvent)
{
    Listener listener(0, "127.0.0.1");
    Chain chain({"sender"});
    std::thread peer([&] { listener.accept(10000).reset(); });  // accepts and closes
    chain.init(initFor(listener.port(), ""));
    peer.join();
    const Array frame = countingFrame(64, 48, 1);
    std::string error;
    for (int i = 0; i < 1000 && error.empty(); ++i) error = thrownText([&] { chain.process(&frame); });
    EXPECT_EQ(error, "write error");
    EXPECT_EQ(thrownText([&] { chain.process(&frame); }), "write error");
    EXPECT_EQ(thrownText([&] { chain.flush(); }), "write error");
    EXPECT_EQ(chain.arrived.back().eventType, 1003);
}

TEST(CPUSender, SlowReceiverLosesNothing)
{
    const TempDir dir;
    Receiver receiver(std::chrono::microseconds(300));
    {
        Chain chain({"sender", "filesaver", "clast"});
        chain.init(initFor(receiver.port(), dir / "run.rec"));
        const Array frame(Kind::Uchar, 300000, 1);
        for (int i = 0; i < 100; ++i) chain.process(&frame);
        chain.flush();
    }
    EXPECT_TRUE(text(receiver.bytes()) == readFile(dir / "run.rec"));
}

TEST(USock, ReaderTakesRecordsHoweverTheyArrive)
{
    BIOmem sent;
    for (int i = 0; i < 3; ++i) {
        writeRecord(sent, everyKind());
        writeRecord(sent, Struct{{"data", countingFrame(64, 48, i)}});
    }
    for (const std::size_t most : {std::size_t{1}, std::size_t{7}, std::size_t{4096}, std::size_t{1} << 20}) {
        Listener listener(0, "127.0.0.1");
        std::thread peer([&] {
            std::mt19937 random(7);
            USock client("127.0.0.1", listener.port());
            auto rest = sent.bytes();
            while (!rest.empty()) {
                const std::size_t part = std::min(rest.size(), 1 + random() % most);
                client.write(rest.data(), part);
                rest = rest.subspan(part);
            }
        });
        const auto socket = listener.accept(10000);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(readRecord(*socket).equals(everyKind()));
            EXPECT_TRUE(readRecord(*socket).equals(Struct{{"data", countingFrame(64, 48, i)}}));
        }
        std::string error;
        EXPECT_EQ(printed([&] { error = thrownText([&] { readRecord(*socket); }); }), "-1s\n");
        EXPECT_EQ(error, "read error");
        peer.join();
    }
}

TEST(USock, ServerServesOnePeerAndThePortIsTaken)
{
    std::uint16_t port = 0;
    {
        const Listener taken(0);
        port = taken.port();
        EXPECT_EQ(thrownText([&] { const USock second(port); }), "already bounded!");
        EXPECT_NE(thrownText([&] { const Listener second(port); }), "");  // the system's message
        EXPECT_NE(thrownText([&] { const Listener wrong(0, "no.such.host.invalid"); }), "");
    }
    std::string got;
    std::string out = printed([&] {
        std::thread server([&] {
            USock socket(port);
            EXPECT_TRUE(socket.connected());
            EXPECT_FALSE(socket.isClient());
            EXPECT_EQ(socket.peer(), "127.0.0.1");
            char bytes[5];
            socket.read(bytes, sizeof bytes);
            got.assign(bytes, sizeof bytes);
            socket.write("back", 4);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        USock client("localhost", port);
        EXPECT_TRUE(client.isClient());
        client.write("there", 5);
        char bytes[4];
        client.read(bytes, sizeof bytes);
        EXPECT_EQ(std::memcmp(bytes, "back", 4), 0);
        server.join();
    });
    EXPECT_EQ(got, "there");
    EXPECT_NE(out.find("accept income\n"), std::string::npos);
    EXPECT_NE(out.find("Your Server is localhost 127.0.0.1\n"), std::string::npos) << out;
}

TEST(USock, UnconnectedDropsWritesAndReadsNothing)
{
    USock socket("no.such.host.invalid", 9);
    socket.write("x", 1);
    socket.sendText("x");
    char byte = 0;
    EXPECT_EQ(thrownText([&] { socket.read(&byte, 1); }), "read error");
    EXPECT_EQ(socket.peer(), "");
}

TEST(USock, TimesOutWhenToldTo)
{
    Listener listener(0, "127.0.0.1");
    EXPECT_EQ(listener.accept(10), nullptr);
    const USock client("127.0.0.1", listener.port());
    const auto socket = listener.accept(10000);
    socket->setReceiveTimeout(20);
    std::byte byte{};
    EXPECT_EQ(socket->receiveSome({&byte, 1}), USock::kTimedOut);
}

TEST(USock, AuxiliaryFramings)
{
    Receiver receiver;
    {
        USock client("127.0.0.1", std::uint16_t(receiver.port()));
        client.sendSamples(std::vector<std::uint16_t>{0x1234, 0xABCD});
        client.sendText("abc");
        client.sendText("");
        client.sendText(std::string(255, 'x'));
        client.sendText(std::string(254, 'y'));
    }
    EXPECT_EQ(text(receiver.bytes()), "\x04\0\0\0\x34\x12\xCD\xAB"s + "\x04\0\0\0abc\0"s + "\xFF\0\0\0"s +
                                          std::string(254, 'y') + "\0"s);
}

}  // namespace
}  // namespace scansteps
