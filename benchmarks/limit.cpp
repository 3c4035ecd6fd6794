// The lower limit of the time of a small command: a static program that makes only the system calls
// of getUserUuid. Reads the port and the arguments, sends one GET, writes both result files.
//
//   limit COMMAND FOLDER

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

char buffer[65536];

size_t readFile(const char* path)
{
    const int file = open(path, O_RDONLY);
    const ssize_t count = read(file, buffer, sizeof buffer - 1);
    close(file);
    buffer[count > 0 ? count : 0] = '\0';
    return count > 0 ? size_t(count) : 0;
}

// Writes `text`, which is ASCII, as UTF-16LE to a side file and renames it to `path`.
size_t writeFile(const char* path, const char* text)
{
    size_t size = 0;
    for (; *text != '\0'; ++text) {
        buffer[size++] = *text;
        buffer[size++] = '\0';
    }
    char side[4096];
    std::snprintf(side, sizeof side, "%s.temp", path);
    const int file = open(side, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const bool written = write(file, buffer, size) == ssize_t(size);
    return close(file) == 0 && written && rename(side, path) == 0 ? size : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 1;
    char path[4096];
    std::snprintf(
        path, sizeof path, "%s/tessaron.com/Tessaron Desktop.conf", std::getenv("XDG_CONFIG_HOME"));
    readFile(path);
    const char* const setting = std::strstr(buffer, "httpServerPort=");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(setting == nullptr ? 50002 : std::atoi(setting + 15)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::snprintf(path, sizeof path, "%s/mac-word-plugin-args.txt", argv[2]);
    readFile(path);

    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    const char request[] = "GET /userUuid HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || send(connection, request, sizeof request - 1, 0) < 0)
        return 1;
    size_t count = 0;
    for (ssize_t more; (more = recv(connection, buffer + count, sizeof buffer - 1 - count, 0)) > 0;)
        count += size_t(more);
    close(connection);
    buffer[count] = '\0';
    char* const uuid = std::strstr(buffer, "\"uuid\":\"");
    if (uuid == nullptr)
        return 1;
    char result[64];
    std::snprintf(result, sizeof result, "%.36s", uuid + 8);

    std::snprintf(path, sizeof path, "%s/mac-word-plugin-results.txt", argv[2]);
    std::snprintf(result, sizeof result, "%zu", writeFile(path, result));
    std::snprintf(path, sizeof path, "%s/mac-word-plugin-result-ready.txt", argv[2]);
    writeFile(path, result);
    std::puts(result);
}
