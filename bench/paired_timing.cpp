#include "paired_timing.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <utility>

namespace korvane::bench {

namespace {

/** Seconds per run over at least kRoundSeconds. */
double round_of(const TimedRun& run) {
    double seconds = 0;
    int runs = 0;
    while (seconds < kRoundSeconds) {
        seconds += run();
        ++runs;
    }
    return seconds / runs;
}

double seconds_of(const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
}

}  // namespace

Summary summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    const double median =
        values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

int pin_to_one_processor() {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
        throw std::runtime_error("sched_getaffinity failed");
    }
    size_t last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &allowed)) {
        --last;
    }
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    if (sched_setaffinity(0, sizeof allowed, &allowed) != 0) {
        throw std::runtime_error("sched_setaffinity failed");
    }
    return static_cast<int>(last);
}

double thread_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

TimedRun in_this_thread(std::function<void()> work) {
    return [work = std::move(work)] {
        const double start = thread_seconds();
        work();
        return thread_seconds() - start;
    };
}

TimedRun as_process(std::vector<std::string> command) {
    return [command = std::move(command)]() mutable {
        std::vector<char*> argv;
        for (std::string& word : command) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        pid_t child = 0;
        const int error = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        int status = 0;
        rusage usage{};
        if (error != 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
            throw std::runtime_error(command[0] + " failed");
        }
        return seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime);
    };
}

PairedTimes alternate(const TimedRun& first, const TimedRun& second) {
    std::vector<double> first_times;
    std::vector<double> second_times;
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        double a = 0;
        double b = 0;
        if (round % 2 == 0) {
            a = round_of(first);
            b = round_of(second);
        } else {
            b = round_of(second);
            a = round_of(first);
        }
        first_times.push_back(a);
        second_times.push_back(b);
        ratios.push_back(b / a);
    }
    return {summarise(first_times), summarise(second_times), summarise(ratios)};
}

Summary repeat(const TimedRun& run) {
    std::vector<double> times(kRounds);
    for (double& t : times) {
        t = round_of(run);
    }
    return summarise(times);
}

}  // namespace korvane::bench
