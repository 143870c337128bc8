// Holds back what a worker thread's code prints and reports, so that the chain's thread can emit it at the
// right place of the output.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "scansteps/trouble.h"

namespace scansteps {

class CapturedOutput
{
  public:
    /// While it exists, what this thread prints through print.h and reports with notifyHost() is kept in
    /// `to`.
    class Scope
    {
      public:
        explicit Scope(CapturedOutput& to);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

    /// What this thread's output is captured by; null for a thread that emits it directly.
    static CapturedOutput* ofThisThread();

    void addText(bool isError, std::string_view text);
    void addNotice(Trouble trouble, const char* step, const char* file, const char* reason);

    /// Emits everything in its order, and forgets it.
    void replay();

  private:
    enum class Sort : std::uint8_t
    {
        Output,
        Errors,
        Notice
    };
    struct Item
    {
        Sort sort = Sort::Output;
        std::string text;
        Trouble trouble = Trouble::FileFailed;
        std::string file = {}, reason = {};
    };
    std::vector<Item> items_;
};

}  // namespace scansteps
