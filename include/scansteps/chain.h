// The chain of steps: base classes, events, and how an event is told apart. Concrete steps derive from
// CPUBase.
#pragma once

#include <cstdint>
#include <string>

#include "scansteps/record.h"

namespace scansteps {

/// Values of "eventType".
namespace event {
inline constexpr int kInit = 1001;      ///< a run begins; the record describes the frames to come
inline constexpr int kProcess = 1002;   ///< one frame, named by "handle"
inline constexpr int kFlush = 1003;     ///< the run ends; a source also writes it when its input ends
inline constexpr int kMismatch = 1004;  ///< a step cannot take the format; reaches the end of the chain
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

/// Tells initialise, process and flush apart and forwards everything else unchanged.
class StepBase : public cChain
{
  public:
    void dispatch(varitype& params) override;
    const char* getName() override;
    virtual void init(varitype& params);
    virtual void process(varitype& params);
    /// Prints the timing line, then forwards.
    virtual void flush(varitype& params);

    std::string name;       ///< instance name for reports; when empty they use getName()
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
/// Hands the record to the step behind `step`, if there is one.
void forward(const cChain& step, varitype& params);
/// Reports that the format does not fit: writes 1004 into the record and forwards it at once.
void reportMismatch(const cChain& step, varitype& params);
/// Format code of "dataFormat". When the key is absent or names no format, or `required` is not 0 and the
/// code is another one: reports the mismatch and returns `fallback`.
std::uint32_t formatOrMismatch(const cChain& step, varitype& params, std::uint32_t fallback,
                               std::uint32_t required = 0);
/// Microseconds of a monotonic clock: only differences mean something.
std::int64_t microseconds();

}  // namespace scansteps
