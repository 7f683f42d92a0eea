#include "busy_load.h"

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace kvdsrtool {

namespace {

// Process ids of the running busy processes; the signal handler reads them.
constexpr int kMaxLoad = 1024;
volatile sig_atomic_t g_count = 0;
pid_t g_pids[kMaxLoad];

void onSignal(int sig) {
    for (int i = 0; i < g_count; ++i) kill(g_pids[i], SIGKILL);
    signal(sig, SIG_DFL);
    raise(sig);
}

[[noreturn]] void spin(pid_t parent, unsigned lifetimeSeconds) {
    // Only async-signal-safe calls: the parent may have other threads.
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(0);  // the parent died before the line above
#else
    (void)parent;
#endif
    alarm(lifetimeSeconds);
    volatile unsigned long counter = 0;
    for (;;) counter = counter + 1;
}

}  // namespace

bool startBusyLoad(int count, unsigned lifetimeSeconds) {
    static const bool registered = std::atexit(stopBusyLoad) == 0;
    (void)registered;
    const pid_t parent = getpid();
    for (int i = 0; i < count && g_count < kMaxLoad; ++i) {
        const pid_t pid = fork();
        if (pid < 0) {
            std::perror("fork");
            stopBusyLoad();
            return false;
        }
        if (pid == 0) spin(parent, lifetimeSeconds);
        g_pids[g_count] = pid;
        g_count = g_count + 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return true;
}

bool busyLoadAlive() {
    for (int i = 0; i < g_count; ++i)
        if (waitpid(g_pids[i], nullptr, WNOHANG) != 0) return false;
    return true;
}

void stopBusyLoad() {
    const int n = g_count;
    for (int i = 0; i < n; ++i) kill(g_pids[i], SIGKILL);
    for (int i = 0; i < n; ++i) waitpid(g_pids[i], nullptr, 0);
    g_count = 0;
}

void stopBusyLoadOnSignals() {
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGHUP, onSignal);
}

}  // namespace kvdsrtool
