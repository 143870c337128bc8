// Step sender: sends the run to a receiver over TCP, the same bytes that a recording of it would hold.
#pragma once

#include <memory>
#include <string>

#include "scansteps/chain.h"
#include "scansteps/socket.h"

namespace scansteps::recording {

class CPUSender final : public CPUBase
{
  public:
    const char* getName() override { return "CPUSender"; }
    /// Also sends events of the host's own numbering.
    void dispatch(varitype& params) override;
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    /// Calls `write` with the connection. Tells the host of a record that is not sent.
    template <class Write>
    void send(Write write);

    std::string receiver_;  // host:port
    bool hadReceiver_ = false;
    std::unique_ptr<Sender> sender_;
};

}  // namespace scansteps::recording
