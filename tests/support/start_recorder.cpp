#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

extern char** environ;

namespace {

void writeDescriptors(FILE* record)
{
    DIR* const folder = opendir("/proc/self/fd");
    while (const dirent* const entry = readdir(folder)) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_name[0] == '.' || descriptor == dirfd(folder)
            || descriptor == fileno(record)) {
            continue;
        }
        char target[4096] = "";
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        if (readlink(link.c_str(), target, sizeof target - 1) >= 0) {
            const bool isReadableAndWritable = (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR;
            std::fprintf(record, "fd %d=%s%s\n", descriptor, target,
                isReadableAndWritable ? "" : " in one direction");
        }
    }
    closedir(folder);
}

/// Writes the signals that are ignored or blocked, and the processors that may be used.
void writeStatus(FILE* record)
{
    FILE* const status = std::fopen("/proc/self/status", "r");
    char line[4096];
    while (std::fgets(line, sizeof line, status) != nullptr) {
        for (const char* const key : {"SigIgn:", "SigBlk:", "Cpus_allowed_list:"}) {
            if (std::strncmp(line, key, std::strlen(key)) == 0) {
                std::fputs(line, record);
            }
        }
    }
    std::fclose(status);
}

} // namespace

/// Stands in for the desktop application: writes how it was started into a file, which appears when
/// it is complete. The environment variable RECORD names the file. If RECORD is not set, the first
/// argument names it. With "stay" as the second argument, the program then waits to be killed.
int main(int argc, char** argv)
{
    const char* const named = std::getenv("RECORD");
    if (named == nullptr && argc < 2) {
        return 1;
    }
    const std::string path = named != nullptr ? named : argv[1];
    const std::string unfinishedPath = path + ".new";
    FILE* const record = std::fopen(unfinishedPath.c_str(), "w");
    if (record == nullptr) {
        return 1;
    }
    for (int i = 0; i < argc; ++i) {
        std::fprintf(record, "arg %s\n", argv[i]);
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        std::fprintf(record, "env %s\n", *variable);
    }
    char folder[4096] = "";
    if (getcwd(folder, sizeof folder) != nullptr) {
        std::fprintf(record, "cwd %s\n", folder);
    }
    std::fprintf(record, "pid %d\nsession %d\n", int(getpid()), int(getsid(0)));
    writeStatus(record);
    writeDescriptors(record);
    if (std::fclose(record) != 0 || std::rename(unfinishedPath.c_str(), path.c_str()) != 0) {
        return 1;
    }
    if (argc > 2 && std::strcmp(argv[2], "stay") == 0) {
        pause();
    }
    return 0;
}
