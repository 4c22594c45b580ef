// Which threads of this process wait in poll, as /proc shows their system
// call (Linux): lets a test act on a read that has surely begun.
#ifndef TARVEL_TEST_POLLING_THREADS_H
#define TARVEL_TEST_POLLING_THREADS_H

#include <sys/syscall.h>
#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <string>

// Whether thread `tid` waits in poll; with `withoutTimeLimit`, only a wait without time limit counts.
inline bool waitsInPoll(const std::string& tid, bool withoutTimeLimit = false) {
    std::ifstream in("/proc/self/task/" + tid + "/syscall");
    long number = -1;
    unsigned long fds = 0, count = 0, limit = 0;
    in >> number >> std::hex >> fds >> count >> limit;
    if (number == SYS_poll) return !withoutTimeLimit || (limit & 0xFFFFFFFFu) == 0xFFFFFFFFu; // timeout -1
    if (number == SYS_ppoll) return !withoutTimeLimit || limit == 0;                          // no timespec
    return false;
}

inline bool waitsInPoll(pid_t tid) {
    return waitsInPoll(std::to_string(tid));
}

// Whether some thread waits in poll without time limit: only a read whose
// time-out is infinite does (the simulator always has a next deadline).
inline bool aThreadWaitsInPollWithoutTimeLimit() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        if (waitsInPoll(task.path().filename().string(), true)) return true;
    return false;
}

#endif
