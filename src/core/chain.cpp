// Dispatch of events, and the default behaviour of steps.
#include "scansteps/chain.h"

#include <chrono>

#include "core/print.h"
#include "scansteps/texture.h"

namespace scansteps {

void cChain::dispatch(varitype&) {}

void cChain::setNext(cChain* step)
{
    next = step;
}

const char* cChain::getName()
{
    return "cChain";
}

void StepBase::dispatch(varitype& params)
{
    switch (eventType(params)) {
        case event::kInit:
            time = 0;
            init(params);
            break;
        case event::kProcess:
            process(params);
            break;
        case event::kFlush:
            flush(params);
            break;
        default:
            forward(*this, params);
            break;
    }
}

const char* StepBase::getName()
{
    return "StepBase";
}

void StepBase::init(varitype&) {}

void StepBase::process(varitype&) {}

void StepBase::flush(varitype& params)
{
    print::timing(name.empty() ? getName() : name.c_str(), time);
    forward(*this, params);
}

const char* CPUBase::getName()
{
    return "CPUBase";
}

int eventType(const varitype& params)
{
    return params["eventType"].as<std::int32_t>();
}

void forward(const cChain& step, varitype& params)
{
    if (step.next != nullptr) step.next->dispatch(params);
}

void reportMismatch(const cChain& step, varitype& params)
{
    params["eventType"].getv<std::int32_t>() = event::kMismatch;
    forward(step, params);
}

std::uint32_t formatOrMismatch(const cChain& step, varitype& params, std::uint32_t fallback,
                               std::uint32_t required)
{
    const std::uint32_t code =
        params.has("dataFormat") ? formatCode(params["dataFormat"].as<std::string>()) : 0;
    if (code != 0 && (required == 0 || code == required)) return code;
    reportMismatch(step, params);
    return fallback;
}

std::int64_t microseconds()
{
    using namespace std::chrono;
    return duration_cast<std::chrono::microseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace scansteps
