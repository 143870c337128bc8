// Preloaded into a program, fails one chosen call made after main has begun: an allocation, the start of a
// thread, or a system call on files, sockets or memory maps, wherever it comes from (glibc's own streams
// included). System calls are caught by a seccomp filter that raises SIGSYS for them; the handler counts,
// injects, or makes the call itself.
//
//   FAULTS_LOG   file that lists every call as "name descriptor", or only the failed one, with a backtrace
//   FAULTS_CALL  "name:N:how"; how is an errno, "short" (half a transfer), or an errno and "+" (from the
//                N-th call on)
//
// Calls that the loader and the resolver make for themselves are named "lib.NAME". Linux on x86-64 only.
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <numeric>
#include <utility>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
extern const char faultsCallEnd[];
long faultsCall(long number, const long* arguments);
}

// The only system call instruction that the filter lets pass: faultsCall(number, six arguments).
asm(R"(
    .globl faultsCall, faultsCallEnd
    .hidden faultsCall, faultsCallEnd
faultsCall:
    mov %rdi, %rax
    mov %rsi, %r11
    mov 0(%r11), %rdi
    mov 8(%r11), %rsi
    mov 16(%r11), %rdx
    mov 24(%r11), %r10
    mov 32(%r11), %r8
    mov 40(%r11), %r9
    syscall
faultsCallEnd:
    ret
)");

namespace {

enum class Transfer
{
    None,
    Bytes,
    Vector
};
struct Call
{
    const char* name;
    long number;
    Transfer transfer = Transfer::None;
    bool takesEffect = false;  // even if it is interrupted
};

constexpr int kAlloc = 0, kThread = 1;
#define CALL(name) #name, SYS_##name
// clang-format off
constexpr Call kCalls[] = {
    {"alloc", -1}, {"thread", -1}, {CALL(close), Transfer::None, true},
    {CALL(read), Transfer::Bytes}, {CALL(pread64), Transfer::Bytes}, {CALL(readv), Transfer::Vector},
    {CALL(preadv), Transfer::Vector}, {CALL(write), Transfer::Bytes}, {CALL(pwrite64), Transfer::Bytes},
    {CALL(writev), Transfer::Vector}, {CALL(pwritev), Transfer::Vector}, {CALL(sendto), Transfer::Bytes},
    {CALL(recvfrom), Transfer::Bytes}, {CALL(sendmsg)}, {CALL(recvmsg)},
    {CALL(open)}, {CALL(openat)}, {CALL(fsync)}, {CALL(fdatasync)}, {CALL(ftruncate)}, {CALL(fallocate)}, {CALL(lseek)},
    {CALL(rename)}, {CALL(renameat)}, {CALL(renameat2)}, {CALL(link)}, {CALL(linkat)}, {CALL(unlink)}, {CALL(unlinkat)},
    {CALL(rmdir)}, {CALL(mkdir)}, {CALL(mkdirat)}, {CALL(stat)}, {CALL(fstat)}, {CALL(lstat)}, {CALL(newfstatat)},
    {CALL(statx)}, {CALL(access)}, {CALL(faccessat)}, {CALL(faccessat2)}, {CALL(getdents64)}, {CALL(readlink)},
    {CALL(flock)}, {CALL(fcntl)}, {CALL(ioctl)}, {CALL(chmod)}, {CALL(fchmod)}, {CALL(dup)}, {CALL(dup2)}, {CALL(pipe2)},
    {CALL(eventfd2)}, {CALL(socket)}, {CALL(bind)}, {CALL(listen)}, {CALL(connect), Transfer::None, true}, {CALL(accept)}, {CALL(accept4)},
    {CALL(getsockname)}, {CALL(getpeername)}, {CALL(getsockopt)}, {CALL(setsockopt)}, {CALL(shutdown)}, {CALL(poll)},
    {CALL(ppoll)}, {CALL(select)}, {CALL(pselect6)}, {CALL(epoll_wait)}, {CALL(mmap)},
};
// clang-format on
#undef CALL
constexpr int kCount = std::size(kCalls);

std::atomic<int> counters[2][kCount];
std::atomic<bool> armed = false, done = false;
[[gnu::tls_model("initial-exec")]] thread_local bool inLibrary = false, inResolver = false, inLoader = false;
int wantedCall = -1, wantedNumber = 0, wantedError = 0;
bool wantedInLibrary = false, wantedShort = false, wantedOnward = false;
int logFile = -1;
int (*realMain)(int, char**, char**) = nullptr;

long call(long number, std::initializer_list<long> given)
{
    long arguments[6] = {};
    std::copy(given.begin(), given.end(), arguments);
    return faultsCall(number, arguments);
}

void log(int index, long descriptor, bool backTrace)
{
    char line[80];
    const int length = std::snprintf(line, sizeof line, "%s%s %ld\n", inLibrary ? "lib." : "",
                                     kCalls[index].name, descriptor);
    call(SYS_write, {logFile, reinterpret_cast<long>(line), length});
    if (!backTrace) return;
    armed = false;  // so that the calls of backtrace() are not counted
    void* frames[40];
    backtrace_symbols_fd(frames, backtrace(frames, 40), logFile);
    armed = true;
}

// Whether this call is to fail.
bool fails(int index, long descriptor)
{
    if (!armed || inLoader) return false;
    const int number = ++counters[inLibrary][index];
    if (wantedCall < 0) {
        log(index, descriptor, false);
        return false;
    }
    if (index != wantedCall || inLibrary != wantedInLibrary) return false;
    if (number < wantedNumber || (number > wantedNumber && !wantedOnward)) return false;
    // A full disk must not silence the messages of the program.
    if (number > wantedNumber && kCalls[index].transfer != Transfer::None && descriptor <= 2) return false;
    if (!done.exchange(true)) log(index, descriptor, true);
    return true;
}

// The loader allocates a thread's copy of a library's variables when they are first used, and ends the
// process when it cannot: a program cannot prevent that. The memory maps of such an allocation belong to it.
bool isLoader(const void* caller)
{
    static const std::uintptr_t begin = getauxval(AT_BASE);
    static const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(begin);
    static const auto* last = reinterpret_cast<const ElfW(Phdr)*>(begin + header->e_phoff) + header->e_phnum;
    static const std::uintptr_t length = std::accumulate(
        last - header->e_phnum, last, std::uintptr_t{}, [](std::uintptr_t most, const ElfW(Phdr) & part) {
            return part.p_type == PT_LOAD ? std::max<std::uintptr_t>(most, part.p_vaddr + part.p_memsz)
                                          : most;
        });
    return reinterpret_cast<std::uintptr_t>(caller) - begin < length;
}

template <class Allocate>
void* allocate(const void* caller, Allocate real)
{
    if (!armed || inResolver) return real();
    if (!inLibrary && isLoader(caller)) {
        const bool before = std::exchange(inLoader, true);
        void* const memory = real();
        inLoader = before;
        return memory;
    }
    if (!fails(kAlloc, -1)) return real();
    errno = ENOMEM;
    return nullptr;
}

long shortened(const Call& what, long* arguments)
{
    iovec first;
    if (what.transfer == Transfer::Vector) {
        const auto* vector = reinterpret_cast<const iovec*>(arguments[1]);
        const auto* end = vector + arguments[2];
        vector = std::find_if(vector, end, [](const iovec& part) { return part.iov_len > 0; });
        if (vector == end) return faultsCall(what.number, arguments);
        first = {vector->iov_base, (vector->iov_len + 1) / 2};
        arguments[1] = reinterpret_cast<long>(&first);
        arguments[2] = 1;
    } else {
        arguments[2] = (arguments[2] + 1) / 2;
    }
    return faultsCall(what.number, arguments);
}

void onSystemCall(int, siginfo_t* info, void* context)
{
    const int savedErrno = errno;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    long arguments[] = {registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                        registers[REG_R10], registers[REG_R8],  registers[REG_R9]};
    const auto* what = std::find_if(kCalls, kCalls + kCount,
                                    [&](const Call& known) { return known.number == info->si_syscall; });
    long result;
    if (!fails(static_cast<int>(what - kCalls), arguments[0])) {
        result = faultsCall(info->si_syscall, arguments);
    } else if (wantedShort) {
        result = shortened(*what, arguments);
    } else {
        if (what->takesEffect && (wantedError == EINTR || what->number == SYS_close))
            faultsCall(info->si_syscall, arguments);
        result = -wantedError;
    }
    registers[REG_RAX] = result;
    errno = savedErrno;
}

void install()
{
    struct sigaction action = {};
    action.sa_sigaction = onSystemCall;
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_RESTART;
    sigaction(SIGSYS, &action, nullptr);

    sock_filter code[2 * kCount + 8];
    unsigned length = 0;
    const auto add = [&](sock_filter instruction) { code[length++] = instruction; };
    const auto end = reinterpret_cast<std::uintptr_t>(faultsCallEnd);
    add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, instruction_pointer)));
    add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(end), 0, 3));
    add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, instruction_pointer) + 4));
    add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(end >> 32), 0, 1));
    add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const Call& known : kCalls) {
        if (known.number < 0) continue;
        add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(known.number), 0, 1));
        add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    }
    add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(length), code};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        std::perror("faults: no seccomp filter");
        std::_Exit(99);
    }
}

void parse(const char* text)
{
    char name[32] = {}, how[16] = {};
    if (text == nullptr || std::sscanf(text, "%31[^:]:%d:%15s", name, &wantedNumber, how) != 3) return;
    wantedInLibrary = std::strncmp(name, "lib.", 4) == 0;
    const char* plain = name + (wantedInLibrary ? 4 : 0);
    for (int i = 0; i < kCount; ++i)
        if (std::strcmp(kCalls[i].name, plain) == 0) wantedCall = i;
    wantedShort = std::strcmp(how, "short") == 0;
    wantedOnward = std::strchr(how, '+') != nullptr;
    wantedError = std::atoi(how);
}

int wrappedMain(int argc, char** argv, char** environment)
{
    void* warm[1];
    backtrace(warm, 1);  // loads its library before calls are counted
    parse(std::getenv("FAULTS_CALL"));
    if (const char* path = std::getenv("FAULTS_LOG"))
        logFile = fcntl(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666), F_DUPFD_CLOEXEC, 900);
    install();
    armed = true;
    return realMain(argc, argv, environment);
}

template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

struct InLibrary
{
    explicit InLibrary(bool isResolver = false) { inResolver = isResolver; }
    ~InLibrary() { inLibrary = before, inResolver = false; }
    bool before = std::exchange(inLibrary, true);
};

}  // namespace

#define VISIBLE extern "C" __attribute__((visibility("default")))

VISIBLE int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(),
                              void (*fini)(), void (*rtldFini)(), void* stackEnd)
{
    realMain = main;
    return next<decltype(&__libc_start_main)>("__libc_start_main")(wrappedMain, argc, argv, init, fini,
                                                                   rtldFini, stackEnd);
}

VISIBLE void* malloc(std::size_t size) noexcept
{
    return allocate(__builtin_return_address(0), [=] { return __libc_malloc(size); });
}
VISIBLE void* calloc(std::size_t count, std::size_t size) noexcept
{
    return allocate(__builtin_return_address(0), [=] { return __libc_calloc(count, size); });
}
VISIBLE void* realloc(void* memory, std::size_t size) noexcept
{
    return allocate(__builtin_return_address(0), [=] { return __libc_realloc(memory, size); });
}
VISIBLE void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return allocate(__builtin_return_address(0), [=] { return __libc_memalign(alignment, size); });
}
VISIBLE void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    return allocate(__builtin_return_address(0), [=] { return __libc_memalign(alignment, size); });
}
VISIBLE int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept
{
    void* const made =
        allocate(__builtin_return_address(0), [=] { return __libc_memalign(alignment, size); });
    if (made == nullptr) return ENOMEM;
    *memory = made;
    return 0;
}

VISIBLE int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                           void* argument) noexcept
{
    static const auto real = next<decltype(&pthread_create)>("pthread_create");
    return fails(kThread, -1) ? EAGAIN : real(thread, attributes, start, argument);
}
VISIBLE void* dlopen(const char* name, int flags) noexcept
{
    const InLibrary inside;
    return next<decltype(&dlopen)>("dlopen")(name, flags);
}
VISIBLE int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** found)
{
    const InLibrary inside(true);  // glibc ends the process if memory runs out here
    return next<decltype(&getaddrinfo)>("getaddrinfo")(node, service, hints, found);
}
VISIBLE int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostLength,
                        char* service, socklen_t serviceLength, int flags)
{
    const InLibrary inside(true);  // glibc ends the process if memory runs out here
    return next<decltype(&getnameinfo)>("getnameinfo")(address, length, host, hostLength, service,
                                                       serviceLength, flags);
}

// The signal that carries the calls must not be blocked.
VISIBLE int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept
{
    sigset_t mask;
    if (set != nullptr) {
        mask = *set;
        if (how != SIG_UNBLOCK) sigdelset(&mask, SIGSYS);
        set = &mask;
    }
    return next<decltype(&pthread_sigmask)>("pthread_sigmask")(how, set, old);
}
VISIBLE int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept
{
    const int error = pthread_sigmask(how, set, old);
    if (error != 0) errno = error;
    return error == 0 ? 0 : -1;
}
