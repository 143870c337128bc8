// Stands in for a class of the table of kinds whose work is not written yet.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/error.h"

namespace scansteps {

class UnavailableStep final : public CPUBase
{
  public:
    explicit UnavailableStep(const char* className) : className_(className) {}
    const char* getName() override { return className_; }
    void init(varitype& params) override { forward(*this, params); }
    void process(varitype&) override { failf("%s: not available yet", className_); }

  private:
    const char* className_;
};

}  // namespace scansteps
