#include "recording/sender.h"

#include "core/frame_in_record.h"
#include "core/print.h"
#include "core/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/host_services.h"
#include "scansteps/settings.h"

namespace scansteps::recording {

SCANSTEPS_FACTORY(sender, CPUSender)

void CPUSender::dispatch(varitype& params)
{
    switch (eventType(params)) {
        case event::kInit:
        case event::kProcess:
        case event::kFlush:
            CPUBase::dispatch(params);
            break;
        default:
            send([&](BIO& to) { writeRecord(to, params); });
            forward(*this, params);
            break;
    }
}

void CPUSender::init(varitype& params)
{
    const Settings settings(*this, params);
    const std::string host = settings.text("sender.host");
    const int port = settings.integer("sender.port");
    settings.frameSize();
    const varitype sent = copyRecord(params);  // as it came, whatever the format is found to be
    formatOrMismatch(*this, params, format::kF1x32);
    sender_.reset();  // the receiver may serve one connection at a time
    receiver_ = host + ":" + std::to_string(port);
    sender_ = std::make_unique<Sender>(host, static_cast<std::uint16_t>(port));
    hadReceiver_ = sender_->connected();
    send([&](BIO& to) { writeRecord(to, sent); });
    forward(*this, params);
}

// Without a receiver the run goes on, and nothing is sent.
void CPUSender::process(varitype& params)
{
    StepTimer timer(*this);
    send([&](BIO& to) { writeEvent(to, params); });
    timer.stop();
    forward(*this, params);
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
