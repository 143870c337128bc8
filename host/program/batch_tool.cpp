// A child process with two pipes.
#include "batch_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace scansteps::host {

namespace {

// Both at once: a program that fills one pipe waits for its reader.
void readBoth(int out, int err, ToolResult& result)
{
    pollfd ends[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* const texts[2] = {&result.out, &result.err};
    for (int open = 2; open > 0;) {
        if (::poll(ends, 2, -1) < 0 && errno != EINTR) return;
        for (int i = 0; i < 2; ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0) continue;
            char block[65536];
            const ssize_t done = ::read(ends[i].fd, block, sizeof block);
            if (done > 0) texts[i]->append(block, std::size_t(done));
            if (done > 0 || (done < 0 && errno == EINTR)) continue;
            ends[i].fd = -1;
            --open;
        }
    }
}

}  // namespace

ToolResult runTool(const std::vector<std::string>& words)
{
    ToolResult result;
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return result;
    if (::pipe2(err, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        return result;
    }
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t parent = ::getpid(), pid = ::fork();
    if (pid == 0) {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    if (pid > 0) readBoth(out[0], err[0], result);
    ::close(out[0]);
    ::close(err[0]);
    int status = 0;
    while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (pid > 0) result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    while (result.err.ends_with('\n')) result.err.pop_back();
    return result;
}

}  // namespace scansteps::host
