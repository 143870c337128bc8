// Capture of a thread's output, and its replay.
#include "core/captured_output.h"

#include <cstdio>
#include <utility>

namespace scansteps {

namespace {
thread_local CapturedOutput* current = nullptr;
}

CapturedOutput::Scope::Scope(CapturedOutput& to)
{
    current = &to;
}

CapturedOutput::Scope::~Scope()
{
    current = nullptr;
}

CapturedOutput* CapturedOutput::ofThisThread()
{
    return current;
}

void CapturedOutput::addText(bool isError, std::string_view text)
{
    items_.push_back({isError ? Sort::Errors : Sort::Output, std::string(text)});
}

void CapturedOutput::addNotice(Trouble trouble, const char* step, const char* file, const char* reason)
{
    items_.push_back({Sort::Notice, step, trouble, file, reason});
}

void CapturedOutput::replay()
{
    for (const Item& item : std::exchange(items_, {}))
        if (item.sort == Sort::Notice)
            notifyHost(item.trouble, item.text.c_str(), item.file.c_str(), item.reason.c_str());
        else
            std::fwrite(item.text.data(), 1, item.text.size(), item.sort == Sort::Errors ? stderr : stdout);
}

}  // namespace scansteps
