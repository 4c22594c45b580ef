// What this process holds, read from /proc: open descriptors, threads and
// resident memory. For the tests and the soak that check nothing leaks.
//
//   const ProcessCounts before = ProcessCounts::baseline();
//   ... connect, exchange, disconnect ...
//   EXPECT_TRUE(ProcessCounts::settlesTo(before));   // threads end a little after they are joined
//
// Linux only.
#ifndef TARVEL_TEST_PROCESS_COUNTS_H
#define TARVEL_TEST_PROCESS_COUNTS_H

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <thread>

struct ProcessCounts {
    std::size_t descriptors = 0;
    std::size_t threads = 0;

    static ProcessCounts now() { return {entries("/proc/self/fd"), entries("/proc/self/task")}; }

    // The counts to come back to. A thread started and joined first: a
    // sanitizer's runtime starts a thread of its own with the first one, and
    // that one stays.
    static ProcessCounts baseline() {
        std::thread([] {}).join();
        return now();
    }

    bool operator==(const ProcessCounts& other) const {
        return descriptors == other.descriptors && threads == other.threads;
    }
    std::string text() const {
        return std::to_string(descriptors) + " descriptors, " + std::to_string(threads) + " threads";
    }

    // Waits up to `limit` for the counts to come back to `before`.
    static bool settlesTo(const ProcessCounts& before, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!(now() == before)) {
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    // Resident set size in bytes (/proc/self/statm), 0 when unreadable.
    static std::size_t residentBytes() {
        std::FILE* f = std::fopen("/proc/self/statm", "r");
        if (f == nullptr) return 0;
        unsigned long size = 0, resident = 0;
        const int got = std::fscanf(f, "%lu %lu", &size, &resident);
        std::fclose(f);
        return got == 2 ? resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) : 0;
    }

private:
    // Entries of a /proc directory, without "." and ".." (and, for fd, the
    // descriptor of the listing itself).
    static std::size_t entries(const char* path) {
        DIR* dir = ::opendir(path);
        if (dir == nullptr) return 0;
        std::size_t n = 0;
        while (const dirent* e = ::readdir(dir))
            if (e->d_name[0] != '.') ++n;
        const bool listsItself = std::string(path) == "/proc/self/fd";
        ::closedir(dir);
        return listsItself && n > 0 ? n - 1 : n;
    }
};

#endif
