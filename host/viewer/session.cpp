// Slots, and the thread that encodes.
#include "session.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace scansteps::viewer {

Session::Session(std::size_t positions)
    : stage_(positions,
             [this] {
                 {
                     const std::lock_guard lock(mutex_);
                     news_ = true;
                 }
                 changed_.notify_one();
             }),
      worker_([this] { work(); })
{
}

Session::~Session()
{
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    worker_.join();
}

void Session::setStatus(Json status)
{
    {
        const std::lock_guard lock(mutex_);
        statusHead_ = std::move(status);
        statusHead_["version"] = ++statusVersion_;
        statusHead_["viewers"] = clients_.size();
        news_ = true;
    }
    changed_.notify_one();
}

void Session::setWake(std::function<void()> wake)
{
    const std::lock_guard lock(mutex_);
    wake_ = std::move(wake);
}

std::shared_ptr<Client> Session::connect()
{
    auto client = std::make_shared<Client>();
    Json hello = subject_->hello();
    hello["slot"] = "hello";
    client->slots["hello"].answer = envelope(hello);
    {
        const std::lock_guard lock(mutex_);
        if (clients_.size() == kMaxClients) return nullptr;
        clients_.push_back(client);
        if (!statusHead_.is_null()) statusHead_["viewers"] = clients_.size();
        watched_ = true;
    }
    subject_->watched(true);
    return client;
}

void Session::disconnect(const std::shared_ptr<Client>& client)
{
    bool isLast = false;
    {
        const std::lock_guard lock(mutex_);
        std::erase(clients_, client);
        if (!statusHead_.is_null()) statusHead_["viewers"] = clients_.size();
        isLast = clients_.empty();
        if (isLast) watched_ = false;
    }
    if (isLast) subject_->watched(false);
}

bool Session::put(Client& client, const std::string& slot, Answer answer)
{
    if (client.slots.size() >= kMaxSlots && !client.slots.contains(slot)) return false;
    client.slots[slot].answer = std::move(answer);
    return true;
}

bool Session::receive(const std::shared_ptr<Client>& client, std::string_view text)
{
    Json reply = {{"slot", "reply"}};
    try {
        const Message message = parseMessage(text);
        if (const auto* request = std::get_if<Request>(&message)) {
            {
                const std::lock_guard lock(mutex_);
                if (client->slots.size() >= kMaxSlots && !client->slots.contains(request->slot)) return false;
                Client::Slot& slot = client->slots[request->slot];
                slot.wanted = *request;
                ++slot.number;
                news_ = true;
            }
            changed_.notify_one();
            return true;
        }
        if (const auto* set = std::get_if<SetSetting>(&message)) {
            reply["set"] = set->path;
            reply["step"] = set->step;
            subject_->set(*set);
        } else if (const auto* action = std::get_if<Action>(&message)) {
            reply["done"] = subject_->act(*action);
        }
    } catch (const std::exception& error) {
        reply["error"] = error.what();
    }
    const std::lock_guard lock(mutex_);
    return put(*client, "reply", envelope(reply));
}

Answer Session::takeAnswer(Client& client)
{
    const std::lock_guard lock(mutex_);
    // What was said first, what is small next, pictures and models last.
    for (const char* name : {"hello", "reply", "status"}) {
        const auto slot = client.slots.find(name);
        if (slot != client.slots.end() && slot->second.answer)
            return std::exchange(slot->second.answer, nullptr);
    }
    for (auto& [name, slot] : client.slots)
        if (slot.answer) {
            news_ = true;
            changed_.notify_one();  // the next answer of this slot may be made now
            return std::exchange(slot.answer, nullptr);
        }
    return nullptr;
}

// Null while there is nothing newer.
Answer Session::answerTo(const Request& request)
{
    if (request.step + 1 >= stage_.positions()) return answerNothing(request, "there is no such step");
    const std::size_t position = request.step + 1;
    const ShotPtr shot = stage_.latest(position, request.tuned);
    if (!shot || shot->version <= request.after) {
        if (!request.tuned) stage_.want(position);
        return nullptr;
    }
    try {
        return answerWith(request, *shot);
    } catch (const std::exception& error) {
        return answerNothing(request, error.what());
    } catch (const char* text) {
        return answerNothing(request, text);
    }
}

// Answers the next request, by turns among the browsers, for which there is something new.
bool Session::answerOne()
{
    std::unique_lock lock(mutex_);
    news_ = false;
    for (std::size_t i = 0; i < clients_.size(); ++i) {
        const std::shared_ptr<Client> client = clients_[(turn_ + i) % clients_.size()];
        for (auto at = client->slots.begin(); at != client->slots.end(); ++at) {
            if (!at->second.wanted || at->second.answer) continue;
            const Request request = *at->second.wanted;
            const std::uint64_t number = at->second.number;
            Answer answer;
            if (request.what == Request::What::Status) {
                if (statusHead_.is_null() || statusVersion_ <= request.after) continue;
                statusHead_["slot"] = request.slot;
                answer = envelope(statusHead_);
            } else {
                lock.unlock();
                answer = answerTo(request);
                lock.lock();
                if (!answer) continue;
            }
            if (at->second.number == number)
                at->second.wanted.reset();  // else a newer one has taken its place
            at->second.answer = std::move(answer);
            turn_ = turn_ + i + 1;
            if (wake_) wake_();
            return true;
        }
    }
    return false;
}

void Session::work()
{
    for (;;) {
        try {
            while (answerOne()) {
            }
        } catch (const std::exception&) {  // out of memory: what was asked for is asked for again
        }
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return news_ || ends_; });
        if (ends_) return;
    }
}

}  // namespace scansteps::viewer
