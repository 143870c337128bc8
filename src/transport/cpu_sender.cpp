#include "transport/cpu_sender.h"

#include "framework/embedded_frame.h"
#include "framework/print.h"
#include "framework/step_factory.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"

namespace scansteps {

SCANSTEPS_STEP(CPUSender)

void CPUSender::dispatch(varitype& params)
{
    switch (eventType(params)) {
        case event::kInit:
        case event::kProcess:
        case event::kFlush:
            CPUBase::dispatch(params);
            break;
        default:
            if (connected()) writeRecord(*sender_, params);
            forward(*this, params);
            break;
    }
}

void CPUSender::init(varitype& params)
{
    const Settings settings(*this, params);
    const std::string host = settings.text("sender.host");
    const int port = settings.integer("sender.port");
    settings.integer("dataX");
    settings.integer("dataY");
    const varitype sent = copyRecord(params);  // as it came, whatever the format is found to be
    formatOrMismatch(*this, params, format::kF1x32);
    sender_.reset();  // the receiver may serve one connection at a time
    sender_ = std::make_unique<Sender>(host, static_cast<std::uint16_t>(port));
    if (connected()) writeRecord(*sender_, sent);
    forward(*this, params);
}

// Without a receiver the run goes on, and nothing is sent.
void CPUSender::process(varitype& params)
{
    StepTimer timer(*this);
    if (connected()) writeEvent(*sender_, params);
    timer.stop();
    forward(*this, params);
}

void CPUSender::flush(varitype& params)
{
    finishThen(
        [&] {
            if (connected()) writeRecord(*sender_, params);
        },
        [&] {
            print::timing("sender::flush::", time);
            forward(*this, params);
        });
}

}  // namespace scansteps
