// Step sender: sends the run to a receiver over TCP, as the same bytes that a recording of it would contain.
#include <memory>
#include <string>

#include "core/frame_in_record.h"
#include "core/print.h"
#include "recording/every_event_step.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"
#include "scansteps/socket.h"
#include "scansteps/step_factory.h"

namespace scansteps::recording {

class CPUSender final : public EveryEventStep
{
  public:
    const char* getName() override { return "CPUSender"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    void otherEvent(const varitype& params) override;
    /// Calls `write` with the connection. Notifies the host if the record is not sent.
    template <class Write>
    void send(Write write);

    std::string receiver_;  // host:port
    bool hadReceiver_ = false;
    std::unique_ptr<Sender> sender_;
};

SCANSTEPS_FACTORY(sender, CPUSender)

void CPUSender::otherEvent(const varitype& params)
{
    send([&](BIO& to) { writeRecord(to, params); });
}

void CPUSender::init(varitype& params)
{
    const Settings settings(*this, params);
    const std::string host = settings.text("sender.host");
    const int port = settings.integer("sender.port");
    settings.frameSize();
    const varitype sent = copyRecord(params);  // before formatOrMismatch() may change it
    formatOrMismatch(*this, params, format::kF1x32);
    sender_.reset();  // first, because the receiver may serve only one connection at a time
    receiver_ = host + ":" + std::to_string(port);
    sender_ = std::make_unique<Sender>(host, static_cast<std::uint16_t>(port));
    hadReceiver_ = sender_->connected();
    send([&](BIO& to) { writeRecord(to, sent); });
    forward(*this, params);
}

// Without a receiver, the run continues and nothing is sent.
void CPUSender::process(varitype& params)
{
    StepTimer timer(*this);
    send([&](BIO& to) { writeEvent(to, params); });
    timer.forward(params);
}

void CPUSender::flush(varitype& params)
{
    finishThen([&] { send([&](BIO& to) { writeRecord(to, params); }); },
               [&] {
                   print::timing("sender::flush::", time);
                   forward(*this, params);
               });
}

template <class Write>
void CPUSender::send(Write write)
{
    if (!sender_) return;
    const auto tell = [this](Trouble trouble) {
        notifyHost(trouble, getName(), receiver_.c_str(), sender_->reason().c_str());
    };
    if (!hadReceiver_) return tell(Trouble::RecordNotSent);
    try {
        write(*sender_);
    } catch (const char*) {
        if (!sender_->connected()) {
            tell(Trouble::RecordNotSent);
            tell(Trouble::FileFailed);
        }
        throw;
    }
}

}  // namespace scansteps::recording
