// A local HTTP server with prepared replies, for measuring clients.
//
//   canned_server [--save FILE] METHOD PATH FILE [METHOD PATH FILE]...
//
// Prints the port it listens on (loopback, chosen by the system), serves one request at a time
// until its standard input is closed, then prints one line of JSON with its own time for each
// path. It ends with its standard input so that it cannot outlive the script that started it.
// Request bodies are discarded unread; with --save the last one is written to FILE.

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

struct Served {
    std::vector<double> cpuMs; // processor time from the request's first byte to the reply's last
    std::vector<double> wallMs; // wall-clock time of the same span, including waits for the client
    std::vector<double> replyMs; // from the request's last byte to the reply's last
};

struct Request {
    std::string target; // "GET /path"
    size_t bodyLength = 0;
    size_t bodySeen = 0; // bytes of the body that came with the header
    bool keepAlive = true;
    bool expectsContinue = false;
};

std::map<std::string, std::string> replies; // by target; header and body in one piece
std::map<std::string, Served> served;
std::string saveTo;

double clockMs(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

std::string httpReply(const char* status, const std::string& body)
{
    return "HTTP/1.1 " + std::string(status)
        + "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size())
        + "\r\n\r\n" + body;
}

std::string readFile(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "The prepared reply %s cannot be read.\n", path);
        std::exit(1);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

bool sendAll(int connection, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = send(connection, bytes.data(), bytes.size(), 0);
        if (sent <= 0)
            return false;
        bytes.remove_prefix(size_t(sent));
    }
    return true;
}

// Returns the value of a header field in lower case, or an empty string.
std::string headerValue(std::string_view lowerHeader, std::string_view name)
{
    const std::string start = "\r\n" + std::string(name) + ":";
    size_t from = lowerHeader.find(start);
    if (from == std::string_view::npos)
        return {};
    from = lowerHeader.find_first_not_of(' ', from + start.size());
    return std::string(lowerHeader.substr(from, lowerHeader.find("\r\n", from) - from));
}

Request parseHeader(std::string_view header)
{
    std::string lower(header);
    std::transform(lower.begin(), lower.end(), lower.begin(),
        [](unsigned char c) { return char(std::tolower(c)); });
    Request request;
    const size_t methodEnd = header.find(' ');
    request.target = header.substr(0, header.find(' ', methodEnd + 1));
    request.bodyLength = std::strtoull(headerValue(lower, "content-length").c_str(), nullptr, 10);
    const std::string connection = headerValue(lower, "connection");
    const bool http10 = header.substr(0, header.find("\r\n")).find("HTTP/1.0") != header.npos;
    request.keepAlive = http10 ? connection == "keep-alive" : connection != "close";
    request.expectsContinue = headerValue(lower, "expect") == "100-continue";
    return request;
}

// Reads the header and usually a part of the body. Returns false if the client has closed the
// connection.
bool readHeader(int connection, Request* request, std::string* bodyStart)
{
    std::string bytes;
    char piece[16384];
    for (;;) {
        const ssize_t count = recv(connection, piece, sizeof piece, 0);
        if (count <= 0)
            return false;
        bytes.append(piece, size_t(count));
        const size_t end = bytes.find("\r\n\r\n");
        if (end == std::string::npos)
            continue;
        *request = parseHeader(std::string_view(bytes).substr(0, end + 2));
        *bodyStart = bytes.substr(end + 4);
        request->bodySeen = bodyStart->size();
        return true;
    }
}

bool readBody(int connection, const Request& request, std::string body)
{
    static std::vector<char> piece(1 << 20);
    // MSG_TRUNC discards bytes of a TCP socket without copying them.
    const int flags = saveTo.empty() ? MSG_TRUNC : 0;
    for (size_t left = request.bodyLength - request.bodySeen; left > 0;) {
        const ssize_t count = recv(connection, piece.data(), std::min(left, piece.size()), flags);
        if (count <= 0)
            return false;
        if (!saveTo.empty())
            body.append(piece.data(), size_t(count));
        left -= size_t(count);
    }
    if (!saveTo.empty())
        std::ofstream(saveTo, std::ios::binary) << body;
    return true;
}

// Serves one request. Returns false if the connection must be closed.
bool serve(int connection)
{
    const double cpuStart = clockMs(CLOCK_THREAD_CPUTIME_ID);
    const double wallStart = clockMs(CLOCK_MONOTONIC);
    Request request;
    std::string bodyStart;
    if (!readHeader(connection, &request, &bodyStart))
        return false;
    if (request.expectsContinue && !sendAll(connection, "HTTP/1.1 100 Continue\r\n\r\n"))
        return false;
    if (!readBody(connection, request, std::move(bodyStart)))
        return false;
    const double wallRead = clockMs(CLOCK_MONOTONIC);
    static const std::string unknown =
        httpReply("404 Not Found", R"({"error":"No reply is prepared for this path."})");
    const auto found = replies.find(request.target);
    if (!sendAll(connection, found == replies.end() ? unknown : found->second))
        return false;
    Served& times = served[found == replies.end() ? "unknown" : request.target];
    const double wallEnd = clockMs(CLOCK_MONOTONIC);
    times.replyMs.push_back(wallEnd - wallRead);
    times.wallMs.push_back(wallEnd - wallStart);
    times.cpuMs.push_back(clockMs(CLOCK_THREAD_CPUTIME_ID) - cpuStart);
    return request.keepAlive;
}

int listenOnLoopback()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0
        || listen(listener, 64) != 0
        || getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::perror("The server cannot listen on the loopback address");
        std::exit(1);
    }
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

// Waits in poll() for a request on any connection and serves it to its end.
void serveUntilInputCloses(int listener)
{
    std::vector<pollfd> waiting{{STDIN_FILENO, POLLIN, 0}, {listener, POLLIN, 0}};
    while (poll(waiting.data(), waiting.size(), -1) > 0 && waiting[0].revents == 0) {
        for (size_t i = waiting.size() - 1; i >= 2; --i) {
            if (waiting[i].revents == 0 || serve(waiting[i].fd))
                continue;
            close(waiting[i].fd);
            waiting.erase(waiting.begin() + long(i));
        }
        if (waiting[1].revents == 0)
            continue;
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const int on = 1;
        setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (connection >= 0)
            waiting.push_back({connection, POLLIN, 0});
    }
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + long(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void printTimes()
{
    std::printf("{");
    const char* separator = "";
    for (const auto& [target, times] : served) {
        std::printf("%s\"%s\":{\"requests\":%zu,\"cpuMs\":%.3f,\"wallMs\":%.3f,\"replyMs\":%.3f}",
            separator, target.c_str(), times.cpuMs.size(), median(times.cpuMs),
            median(times.wallMs), median(times.replyMs));
        separator = ",";
    }
    std::printf("}\n");
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<const char*> arguments(argv + 1, argv + argc);
    if (arguments.size() >= 2 && std::string_view(arguments[0]) == "--save") {
        saveTo = arguments[1];
        arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    if (arguments.empty() || arguments.size() % 3 != 0) {
        std::fprintf(stderr, "usage: canned_server [--save FILE] METHOD PATH FILE...\n");
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN);
    for (size_t i = 0; i < arguments.size(); i += 3)
        replies[std::string(arguments[i]) + " " + arguments[i + 1]] =
            httpReply("200 OK", readFile(arguments[i + 2]));
    serveUntilInputCloses(listenOnLoopback());
    printTimes();
}
