// What the browsers, the chain and the encoding thread share: requests wait here, and are answered with the
// newest shot as soon as it is newer than what the browser has. Nothing is queued: a browser has one request
// and one answer a slot, so a slow one gets fewer answers, not later ones.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "answers.h"
#include "messages.h"
#include "stage.h"

namespace scansteps::viewer {

/// What stands behind the page: a chain, a recording or a model. Called by the server's thread.
class Subject
{
  public:
    virtual ~Subject() = default;
    /// What does not change: sent once to every browser.
    virtual Json hello() const = 0;
    /// Throws std::exception with a text for the page.
    virtual void set(const SetSetting& setting) = 0;
    virtual Json act(const Action& action) = 0;
    /// Somebody looks for the first time, or nobody any longer.
    virtual void watched(bool isWatched) = 0;

  protected:
    Subject() = default;
    Subject(const Subject&) = default;
    Subject& operator=(const Subject&) = default;
};

/// One browser; its members belong to the Session.
struct Client
{
    struct Slot
    {
        std::optional<Request> wanted;
        std::uint64_t number = 0;  // of the request
        Answer answer;
    };
    std::map<std::string, Slot> slots;
};

class Session
{
  public:
    explicit Session(std::size_t positions);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Stage& stage() { return stage_; }
    /// Replaces the status; its "version" is set here.
    void setStatus(Json status);
    bool isWatched() const { return watched_.load(std::memory_order_relaxed); }

    // For the server's thread.
    void setSubject(Subject& subject) { subject_ = &subject; }
    /// Called on any thread when there are answers to be sent; must not call the session.
    void setWake(std::function<void()> wake);
    /// Null when there are kMaxClients already.
    std::shared_ptr<Client> connect();
    void disconnect(const std::shared_ptr<Client>& client);
    /// False for a message that no page sends.
    bool receive(const std::shared_ptr<Client>& client, std::string_view message);
    /// The next answer, or null.
    Answer takeAnswer(Client& client);

    static constexpr std::size_t kMaxClients = 8, kMaxSlots = 12;

  private:
    void work();
    bool answerOne();
    Answer answerTo(const Request& request);
    bool put(Client& client, const std::string& slot, Answer answer);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::shared_ptr<Client>> clients_;
    std::function<void()> wake_;
    Answer status_;
    Json statusHead_;
    std::uint64_t statusVersion_ = 0;
    bool news_ = false, ends_ = false;
    std::size_t turn_ = 0;
    std::atomic<bool> watched_ = false;
    Subject* subject_ = nullptr;
    Stage stage_;
    std::thread worker_;
};

}  // namespace scansteps::viewer
