// The chain of steps: events, and the base classes that dispatch them. Concrete steps derive from CPUBase.
#pragma once

#include <cstdint>
#include <string>

#include "scansteps/record.h"

namespace scansteps {

/// Values of "eventType".
namespace event {
inline constexpr int kInit = 1001;      ///< a run begins; the record describes the frames that follow
inline constexpr int kProcess = 1002;   ///< one frame, named by "handle"
inline constexpr int kFlush = 1003;     ///< the run ends; a source also writes it when its input ends
inline constexpr int kMismatch = 1004;  ///< a step does not accept the format; every later step receives it
}  // namespace event

/// Root of the steps. The order of the virtual operations is part of the interface.
class cChain
{
  public:
    cChain() = default;
    cChain(const cChain&) = delete;
    cChain& operator=(const cChain&) = delete;
    virtual ~cChain() = default;
    /// Receives an event. Errors are thrown C strings.
    virtual void dispatch(varitype& params);
    virtual void setNext(cChain* step);
    /// Class name of the step.
    virtual const char* getName();

    std::string typeIn;      ///< data type accepted, such as "CPU::ANY"; set by the factory
    std::string typeOut;     ///< data type produced
    cChain* next = nullptr;  ///< not owned
};

/// Calls init(), process() or flush() for these events and forwards all others unchanged.
class StepBase : public cChain
{
  public:
    void dispatch(varitype& params) override;
    const char* getName() override;
    virtual void init(varitype& params);
    virtual void process(varitype& params);
    /// Prints the timing line, then forwards.
    virtual void flush(varitype& params);

    std::string name;       ///< instance name for reports; getName() is used when it is empty
    std::int64_t time = 0;  ///< microseconds spent in process since the last initialise event
};

/// Base of the steps that work in host memory.
class CPUBase : public StepBase
{
  public:
    const char* getName() override;
};

/// "eventType" of a record; throws the record's errors.
int eventType(const varitype& params);
/// Dispatches the record to the step after `step`, if there is one.
void forward(const cChain& step, varitype& params);
/// Reports a format mismatch: sets "eventType" to 1004 and forwards the record at once.
void reportMismatch(const cChain& step, varitype& params);
/// Format code of "dataFormat". Reports a mismatch and returns `fallback` when the key is absent, names no
/// format, or names another format than `required` (0: any).
std::uint32_t formatOrMismatch(const cChain& step, varitype& params, std::uint32_t fallback,
                               std::uint32_t required = 0);
/// Microseconds of a monotonic clock; only differences are meaningful.
std::int64_t microseconds();

}  // namespace scansteps
