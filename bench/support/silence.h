// Standard output goes nowhere for as long as an object of this class lives: for steps that print.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace scansteps::bench {

class Silence
{
  public:
    Silence() : screen_(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence()
    {
        std::fflush(stdout);
        ::dup2(screen_, STDOUT_FILENO);
        ::close(screen_);
    }

  private:
    int screen_;
};

}  // namespace scansteps::bench
