// See standard_streams.h: Windows first, then POSIX.
#include "standard_streams.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "interrupts.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#endif

namespace scansteps::host {

namespace {
bool outputWasClosed = false;
int outputError = 0;  // number of the last error, where it is known
}  // namespace

bool standardOutputWasClosed()
{
    return outputWasClosed;
}

const char* flushStandardOutput()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return "";
    return outputError != 0 ? std::strerror(outputError) : "write error";
}

#ifdef _WIN32

void prepareStandardStreams()
{
    for (std::FILE* stream : {stdin, stdout, stderr})
        if (_fileno(stream) >= 0) _setmode(_fileno(stream), _O_BINARY);
    outputWasClosed = _fileno(stdout) < 0;
}

bool standardErrorIsTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

bool standardOutputIsDeserted()
{
    return std::ferror(stdout) != 0 && GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE;
}

#else

namespace {

void openClosedDescriptors()
{
    for (int file = 0; file <= 2; ++file) {
        if (::fcntl(file, F_GETFD) >= 0 || errno != EBADF) continue;
        (void)::open(kNullDevice, O_RDWR);  // takes the lowest free number
        if (file == STDOUT_FILENO) outputWasClosed = true;
    }
}

// Writing to a pipe without a reader or beyond the file-size limit fails instead of ending the program.
// Handlers, as child processes would inherit SIG_IGN.
void surviveFailedWrites()
{
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        struct sigaction before = {}, nothing = {};
        nothing.sa_handler = [](int) {};
        nothing.sa_flags = SA_RESTART;
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_DFL)
            ::sigaction(signal, &nothing, nullptr);
    }
}

#ifdef __GLIBC__

// False when the host is interrupted and the reader has taken nothing for a second.
bool waitForRoom(int file)
{
    constexpr int kToFinishMs = 1000;
    for (;;) {
        const bool hurried = interrupted();
        pollfd waits[2] = {{file, POLLOUT, 0}, {hurried ? -1 : int(interruptWake()), POLLIN, 0}};
        const int found = ::poll(waits, 2, hurried ? kToFinishMs : -1);
        if (found < 0 && errno == EINTR) continue;
        if (found < 0 || waits[0].revents != 0) return true;
        if (found == 0) return false;
    }
}

ssize_t writeAll(void* descriptor, const char* bytes, std::size_t length)
{
    const int file = *static_cast<const int*>(descriptor);
    struct stat status = {};
    // A writable pipe has room for this much.
    const std::size_t most = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) ? length : PIPE_BUF;
    std::size_t done = 0;
    while (done < length) {
        if (!waitForRoom(file)) {
            errno = EINTR;
            break;
        }
        const ssize_t count = ::write(file, bytes + done, std::min(length - done, most));
        if (count > 0) done += static_cast<std::size_t>(count);
        if (count < 0 && errno != EINTR && errno != EAGAIN) break;
    }
    if (done < length && file == STDOUT_FILENO) outputError = errno;
    return static_cast<ssize_t>(done);
}

// The steps print through the same stream. Without memory the system's stream is kept.
void surviveInterruptedCalls(std::FILE*& stream, const int& descriptor, int buffering)
{
    const cookie_io_functions_t calls = {nullptr, writeAll, nullptr, nullptr};
    std::FILE* made = ::fopencookie(const_cast<int*>(&descriptor), "w", calls);
    if (made == nullptr) return;
    std::setvbuf(made, nullptr, buffering, BUFSIZ);
    stream = made;
}

#endif

}  // namespace

void prepareStandardStreams()
{
    openClosedDescriptors();
    surviveFailedWrites();
#ifdef __GLIBC__
    static constexpr int kOut = STDOUT_FILENO, kErr = STDERR_FILENO;
    surviveInterruptedCalls(stdout, kOut, ::isatty(kOut) != 0 ? _IOLBF : _IOFBF);
    surviveInterruptedCalls(stderr, kErr, _IONBF);
#endif
}

bool standardErrorIsTerminal()
{
    return ::isatty(STDERR_FILENO) != 0;
}

bool standardOutputIsDeserted()
{
    pollfd state{STDOUT_FILENO, 0, 0};
    return outputError == EPIPE || (::poll(&state, 1, 0) > 0 && (state.revents & POLLERR) != 0);
}

#endif

}  // namespace scansteps::host
