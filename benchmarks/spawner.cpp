// Runs programs in turn and prints what each whole process cost.
//
//   spawner ROUNDS [--remove FILE]... -- PROGRAM [ARGUMENT]... [-- PROGRAM [ARGUMENT]...]...
//
// Each round runs every program once, in the order given. The files named by --remove are removed
// before each run, and standard output goes to the null device. Prints one line for each run:
//   program-index wall-ns peak-KiB user-us system-us page-faults
// It is a small static program because a child starts with its parent's peak memory: every child of
// a script would seem to need at least as much memory as the script.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

long long nowNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

long long microseconds(const timeval& time)
{
    return time.tv_sec * 1000000LL + time.tv_usec;
}

// Ends the series if a program fails, because the figures of a failed run are meaningless.
void runOnce(size_t index, char** command, const posix_spawn_file_actions_t* actions)
{
    const long long start = nowNs();
    pid_t child = 0;
    if (posix_spawn(&child, command[0], actions, nullptr, command, environ) != 0) {
        std::fprintf(stderr, "%s cannot be started.\n", command[0]);
        std::exit(1);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const long long wall = nowNs() - start;
    if (status != 0) {
        std::fprintf(stderr, "%s ended with the wait status %d.\n", command[0], status);
        std::exit(1);
    }
    std::printf("%zu %lld %ld %lld %lld %ld\n", index, wall, usage.ru_maxrss,
        microseconds(usage.ru_utime), microseconds(usage.ru_stime), usage.ru_minflt);
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<const char*> remove;
    int next = 2;
    for (; next + 1 < argc && std::string_view(argv[next]) == "--remove"; next += 2)
        remove.push_back(argv[next + 1]);
    std::vector<char**> commands;
    for (; next < argc; ++next) {
        if (std::string_view(argv[next]) != "--")
            continue;
        argv[next] = nullptr; // ends the arguments of the previous program
        if (next + 1 < argc)
            commands.push_back(argv + next + 1);
    }
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 0;
    if (rounds <= 0 || commands.empty()) {
        std::fprintf(stderr, "usage: spawner ROUNDS [--remove FILE]... -- PROGRAM...\n");
        return 1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < commands.size(); ++i) {
            for (const char* file : remove)
                unlink(file);
            runOnce(i, commands[i], &actions);
        }
    }
}
