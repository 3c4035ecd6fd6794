#include "tests/support/BadParents.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

void ignoreAllSignals()
{
    for (int number = 1; number < NSIG; ++number) {
        (void)std::signal(number, SIG_IGN); // a few cannot be ignored
    }
}

void blockAllSignals()
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
}

void leaveFilesOpen()
{
    int ends[2];
    (void)!pipe(ends);
    dup2(ends[0], 100);
    dup2(ends[1], 200);
    dup2(open("/dev/zero", O_RDONLY), 63);
}

void breakOutput()
{
    int ends[2];
    (void)!pipe(ends);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
}
