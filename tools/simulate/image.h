// Images of floats, and work spread over threads by rows.
#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace scansteps::simulate {

/// Rows from top to bottom, `channels` values a pixel.
struct Image
{
    Image() = default;
    Image(int columns, int lines, int perPixel = 1, float value = 0)
        : width(columns),
          height(lines),
          channels(perPixel),
          values(static_cast<std::size_t>(columns) * static_cast<std::size_t>(lines * perPixel), value)
    {
    }
    std::size_t index(int x, int y) const
    {
        return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) *
               static_cast<std::size_t>(channels);
    }
    float& at(int x, int y, int channel = 0)
    {
        return values[index(x, y) + static_cast<std::size_t>(channel)];
    }
    float at(int x, int y, int channel = 0) const
    {
        return values[index(x, y) + static_cast<std::size_t>(channel)];
    }

    int width = 0, height = 0, channels = 1;
    std::vector<float> values;
};

/// Calls row(y) for every y below `count`, in any order, from `threads` threads. Throws what the first
/// failing one threw.
template <class Row>
void forRows(int count, int threads, Row&& row)
{
    std::atomic<int> next = 0;
    std::exception_ptr error;
    std::mutex mutex;
    {
        std::vector<std::jthread> workers;
        for (int i = 0; i < threads; ++i)
            workers.emplace_back([&] {
                try {
                    for (int y = next++; y < count; y = next++) row(y);
                } catch (...) {
                    const std::scoped_lock lock(mutex);
                    if (!error) error = std::current_exception();
                }
            });
    }
    if (error) std::rethrow_exception(error);
}

}  // namespace scansteps::simulate
