// Threads that work on items while their owner goes on. The owner collects the items in the order in which it
// passed them, so that results, output and errors keep that order.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace scansteps {

/// `Item::run()`, which must not throw, is called once for every item that is popped. Threads are started
/// when there is an item and none of them is idle, up to the number given; if none can be started, run() is
/// called by pop(). All functions are called by the owner's thread.
template <class Item>
class OrderedWorkers
{
  public:
    ~OrderedWorkers() { stop(); }

    /// For items pushed from now on.
    void setThreads(std::size_t most) { most_ = most; }

    /// Items that were pushed and not popped.
    std::size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }
    /// Whether the oldest item, which must exist, can be popped without waiting.
    bool isFrontDone()
    {
        const std::lock_guard lock(mutex_);
        return items_.front().isDone;
    }

    void push(Item&& item)
    {
        bool needsThread = false;
        {
            const std::lock_guard lock(mutex_);
            items_.push_back({std::move(item), false});
            needsThread = idle_ < items_.size() - begun_ && threads_.size() < most_;
            if (needsThread) ++idle_;
        }
        if (needsThread) startThread();
        changed_.notify_one();
    }

    /// Waits for the oldest item and returns it.
    Item pop()
    {
        std::unique_lock lock(mutex_);
        if (threads_.empty() && begun_ == 0) {
            ++begun_;
            items_.front().item.run();
        } else {
            done_.wait(lock, [&] { return items_.front().isDone; });
        }
        Item item = std::move(items_.front().item);
        items_.pop_front();
        --begun_;
        return item;
    }

    /// Ends the threads after the items that they work on; drops the other ones.
    void stop()
    {
        {
            const std::lock_guard lock(mutex_);
            isStopping_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
        items_.clear();
        begun_ = idle_ = 0;
        isStopping_ = false;
    }

  private:
    struct Slot
    {
        Item item;
        bool isDone = false;
    };

    // The new thread is counted as idle already.
    void startThread()
    {
        try {
            threads_.reserve(most_);
            threads_.emplace_back([this] { work(); });
        } catch (const std::exception&) {
            most_ = threads_.size();
            const std::lock_guard lock(mutex_);
            --idle_;
        }
    }

    void work()
    {
        std::unique_lock lock(mutex_);
        for (;; ++idle_) {
            changed_.wait(lock, [&] { return isStopping_ || begun_ < items_.size(); });
            --idle_;
            if (isStopping_) return;
            Slot& slot = items_[begun_++];  // stays where it is while items are added and removed at the ends
            lock.unlock();
            slot.item.run();
            lock.lock();
            slot.isDone = true;
            done_.notify_one();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;  // for the threads: an item was added, or isStopping_
    std::condition_variable done_;     // for the owner
    std::deque<Slot> items_;
    std::size_t begun_ = 0;  // of items_, from the front
    std::size_t idle_ = 0;   // threads that wait for an item
    std::size_t most_ = 0;
    bool isStopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace scansteps
