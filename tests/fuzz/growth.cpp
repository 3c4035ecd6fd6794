// Shows that time and memory stay linear in hostile input: feeds long runs of what a reader could
// stumble over to each reader, in three sizes, and prints a table; fails when one of them grows
// like the square of its input. growth [LARGEST_MB] (100).

#include "apiclient/PluginApiClient.h"
#include "frontend/ArgsFile.h"
#include "service/FieldCode.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// A text of `head`, as many of `unit` as it takes, and `tail`. "#" in `unit` stands for a number
/// of ten digits that counts up, "@" for one that counts down.
struct Pattern {
    const char* name;
    const char* head;
    const char* unit;
    const char* tail;
};

constexpr Pattern patterns[] = {
    {"opening brackets", "{\"a\":", "[", "}"},
    {"opening braces", "", "{\"a\":", "}"},
    {"closing braces", "{", "}", ""},
    {"nested lists", "{\"a\":[0", ",[[[[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]]]]", "]}"},
    {"quotes", "{", "\"", "}"},
    {"one key", "{\"a\":0", ",\"k\":[1]", "}"},
    {"keys that ascend", "{\"\":0", ",\"#\":0", "}"},
    {"keys that descend", "{\"~\":0", ",\"@\":0", "}"},
    {"long keys alike", "{\"\":0", ",\"00000000000000000000000000000000000000000000000000#\":0",
        "}"},
    {"empty lists", "{\"a\":[0", ",[]", "]}"},
    {"empty texts", "{\"a\":[0", ",\"\"", "]}"},
    {"short numbers", "{\"a\":[0", ",0", "]}"},
    {"one plain text", "{\"a\":\"", "x", "\"}"},
    {"separators", "{\"a\":\"", "\x01", "\"}"},
    {"backslashes", "{\"a\":\"", "\\\\", "\"}"},
    {"escaped quotes", "{\"a\":\"", "\\\"", "\"}"},
    {"escaped zeros", "{\"a\":\"", "\\u0000", "\"}"},
    {"unpaired surrogates", "{\"a\":\"", "\\ud800", "\"}"},
    {"characters of two bytes", "{\"a\":\"", "\xc3\xa9", "\"}"},
    {"plain and escaped", "{\"a\":\"", "0123456789abcdef\\n", "\"}"},
    {"digits", "{\"a\":", "9", "}"},
    {"digits of a fraction", "{\"a\":0.", "9", "}"},
    {"zeros of a fraction", "{\"a\":0.", "0", "1}"},
    {"digits of an exponent", "{\"a\":1e", "9", "}"},
    {"long numbers", "{\"a\":[0", ",1234567890123456789012345678901234567890.5e-20", "]}"},
    {"spaces", "{\"a\":", " ", "0}"},
    {"not closed", "{\"a\":\"", "x", ""},
};

QByteArray textOf(const Pattern& pattern, int size)
{
    QByteArray text = pattern.head;
    const QByteArray unit = pattern.unit;
    const int place = qMax(unit.indexOf('#'), unit.indexOf('@'));
    if (place < 0) {
        text += unit.repeated(size / unit.size());
        return text + pattern.tail;
    }
    const int step = unit.at(place) == '#' ? 1 : -1;
    for (int number = 1500000000; text.size() < size; number += step) {
        text += QByteArray(unit).replace(place, 1, QByteArray::number(number));
    }
    return text + pattern.tail;
}

struct Measured {
    double milliseconds;
    double peakMegabytes;
};

/// Processor time, which does not depend on what else the machine does.
double usedMilliseconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

Measured measuredSince(double startMilliseconds)
{
    const double milliseconds = usedMilliseconds() - startMilliseconds;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
    constexpr double bytesPerUnit = 1; // getrusage() counts bytes on macOS, kilobytes on Linux
#else
    constexpr double bytesPerUnit = 1024;
#endif
    return {milliseconds, double(usage.ru_maxrss) * bytesPerUnit / 1048576};
}

/// A failed reply: its text is read as JSON and, where it is none, taken as the error.
Measured readReply(const QByteArray& text)
{
    int argumentCount = 1;
    char name[] = "growth";
    std::array<char*, 2> arguments{name, nullptr};
    const QCoreApplication application(argumentCount, arguments.data());
    const double start = usedMilliseconds();
    PluginApiClient client(0);
    client.parseResponse(500, text);
    return measuredSince(start);
}

/// The cluster is written again too.
Measured readFieldCode(const QByteArray& text)
{
    const QString fieldCode = QString::fromUtf8(text);
    const double start = usedMilliseconds();
    clusterToFieldCode({{QStringLiteral("citationCluster"), jsonFromFieldCode(fieldCode)}});
    return measuredSince(start);
}

/// The text in UTF-16, so that the file has twice the size; the list is written again too.
Measured readArgumentFile(const QByteArray& text)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("args"));
    bool success = false;
    writeFile(path, QString::fromUtf8(text), &success);
    const double start = usedMilliseconds();
    const QStringList list = readArgsFile(path, &success);
    writeArgsFile(path, list, &success);
    return measuredSince(start);
}

struct Reader {
    const char* name;
    Measured (*read)(const QByteArray& text);
};

constexpr Reader readers[] = {
    {"reply", readReply}, {"field code", readFieldCode}, {"argument file", readArgumentFile}};

/// Measures in a process of its own: its peak memory is then that of this input alone.
bool measure(const Reader& reader, const Pattern& pattern, int size, Measured* result)
{
    void* const shared =
        mmap(nullptr, sizeof(Measured), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        *static_cast<Measured*>(shared) = reader.read(textOf(pattern, size));
        std::_Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    *result = *static_cast<const Measured*>(shared);
    munmap(shared, sizeof(Measured));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// The fastest of three: some runs have to wait for memory, and none is faster than its work.
bool measureThrice(const Reader& reader, const Pattern& pattern, int size, Measured* fastest)
{
    for (int run = 0; run < 3; ++run) {
        Measured result{};
        if (!measure(reader, pattern, size, &result)) {
            return false;
        }
        if (run == 0 || result.milliseconds < fastest->milliseconds) {
            *fastest = result;
        }
    }
    return true;
}

bool printRow(const Reader& reader, const Pattern& pattern, double largestMegabytes)
{
    std::array<Measured, 3> results{};
    double megabytes = largestMegabytes / 100;
    for (Measured& result : results) {
        if (!measureThrice(reader, pattern, int(megabytes * 1e6), &result)) {
            std::printf(
                "%-13s %-24s did not end well with %g MB\n", reader.name, pattern.name, megabytes);
            return false;
        }
        megabytes *= 10;
    }
    std::printf("%-13s %-24s %9.2f %9.1f %9.0f  x%-6.1f %7.0f %7.0f %7.0f  x%.1f\n", reader.name,
        pattern.name, results[0].milliseconds, results[1].milliseconds, results[2].milliseconds,
        results[2].milliseconds / results[1].milliseconds, results[0].peakMegabytes,
        results[1].peakMegabytes, results[2].peakMegabytes,
        results[2].peakMegabytes / results[1].peakMegabytes);
    std::fflush(stdout);
    // Ten times the input; a few milliseconds say nothing.
    const bool grows = results[2].milliseconds > 20
        && (results[2].milliseconds > 50 * results[1].milliseconds
            || results[2].peakMegabytes > 50 * results[1].peakMegabytes);
    if (grows) {
        std::printf("%-13s %-24s grows faster than its input\n", reader.name, pattern.name);
    }
    return !grows;
}

} // namespace

int main(int argc, char* argv[])
{
    const double largest = argc > 1 ? std::atof(argv[1]) : 100;
    if (largest <= 0 || largest > 1000) {
        std::fputs("usage: growth [LARGEST_MB]: more than 0, at most 1000\n", stderr);
        return 1;
    }
    std::printf("%-13s %-24s  milliseconds for %g, %g, %g MB  growth, peak MB, growth\n", "reader",
        "input", largest / 100, largest / 10, largest);
    std::fflush(stdout);
    bool complete = true;
    for (const Reader& reader : readers) {
        for (const Pattern& pattern : patterns) {
            complete = printRow(reader, pattern, largest) && complete;
        }
    }
    return complete ? 0 : 1;
}
