// Writes files on threads of its own while the chain goes on, in order. Used by the steps that write
// frames.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/captured_output.h"
#include "core/ordered_workers.h"
#include "scansteps/error.h"
#include "scansteps/settings.h"
#include "scansteps/stream.h"

namespace scansteps {

/// All functions are called by the chain's thread. What a write prints, reports or throws is printed,
/// reported and thrown there by the next call, and at the latest by finish(). After a write has thrown, those
/// that wait are dropped, as nothing more would have been written without the thread.
class WriteBehind
{
  public:
    using Bytes = std::span<const std::uint8_t>;
    using Buffer = std::vector<std::uint8_t>;

    /// Waits for all writes. What they throw is lost: finish() is for runs that end properly.
    ~WriteBehind();

    /// A new run, whose setting is "write.behind". Writes on the chain's thread unless `isFile`, since a
    /// write to a pipe or a device can take any time, and for a host that stages its files (hostStages()),
    /// which has to know of every trouble before the first of them is kept.
    /// With several `threads`, the writes must not depend on one another; what they print and report keeps
    /// its order.
    void begin(const Settings& settings, bool isFile, std::size_t threads = 1);

    /// The next write. True if it is to be done at once, by the caller: the first of a run, so that a single
    /// frame costs no thread, and every one if writing behind is off.
    bool isDirect();
    /// A buffer with the memory, and the content, of an earlier one if possible.
    Buffer takeBuffer();
    /// Keeps the memory of a buffer that was not pushed.
    void giveBuffer(Buffer&& buffer) { spare_.push_back(std::move(buffer)); }
    /// Has `write` called with the content of the buffer, on the writing thread. Waits while the queue is
    /// full.
    void push(Buffer&& buffer, std::function<void(Bytes)> write);

    /// The next write to `file`, which must stay until finish(): calls `encode` with the file or with a
    /// stream into a buffer.
    template <class Encode>
    void write(BIO& file, Encode encode);

    /// Waits until all is written.
    void finish();
    /// finish(), then tells the host how long the writing thread has worked.
    void finishRun(const char* step);

  private:
    struct Job
    {
        Buffer buffer;
        std::function<void(Bytes)> write;
        std::atomic<bool>* hasFailed = nullptr;
        bool isFailure = false;
        std::string error = {};
        CapturedOutput output = {};
        std::int64_t time = 0;  // microseconds

        void run() noexcept;
    };

    // Appends to a buffer.
    struct BufferStream final : BIO
    {
        explicit BufferStream(Buffer&& memory) : buffer(std::move(memory)) { buffer.clear(); }
        void write(const void* bytes, std::size_t length) override
        {
            const auto* const begin = static_cast<const std::uint8_t*>(bytes);
            buffer.insert(buffer.end(), begin, begin + length);
        }
        void read(void*, std::size_t) override { fail("read error"); }

        Buffer buffer;
    };

    void takeFront();

    std::size_t most_ = 0;
    bool isFirst_ = true;
    std::atomic<bool> hasFailed_ = false;
    std::int64_t time_ = 0;
    std::vector<Buffer> spare_;
    OrderedWorkers<Job> workers_;  // last, so that its threads end first
};

template <class Encode>
void WriteBehind::write(BIO& file, Encode encode)
{
    if (isDirect()) {
        finish();
        return encode(file);
    }
    BufferStream stream(takeBuffer());
    encode(stream);
    push(std::move(stream.buffer), [&file](Bytes bytes) { file.write(bytes.data(), bytes.size()); });
}

/// Whether the name is that of a regular file, or of none.
bool isFileOrNew(const std::string& path);

}  // namespace scansteps
