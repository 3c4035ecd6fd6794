// growth [LARGEST_MB] (default 100): measures whether time and memory grow linearly with hostile
// input. Gives each reader long repetitive inputs in three sizes and prints a table. Fails if a
// result is wrong, or if time or memory grows like the square of the input.

#include "apiclient/PluginApiClient.h"
#include "frontend/ArgsFile.h"
#include "service/FieldCode.h"

#include <QCoreApplication>
#include <QFileInfo>
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

/// What reading an input must give.
enum class Expected {
    Malformed,
    Number, ///< "a" is `number`
    Elements, ///< "a" is a list of 0 and one element for each unit
    Text, ///< "a" is one `unitText` for each unit
    Keys, ///< the key in `head`, and a different key for each unit
    OneKey, ///< the key in `head`, and one key that all units repeat
};

/// A text of `head`, many repetitions of `unit`, and `tail`. "#" in `unit` stands for a number of
/// ten digits that counts up, "@" for one that counts down.
struct Pattern {
    const char* name;
    const char* head;
    const char* unit;
    const char* tail;
    Expected expected;
    double number = 0;
    QStringView unitText = {};
};

constexpr char16_t zero[] = {0};
constexpr char16_t unpaired[] = {0xD800};

constexpr Pattern patterns[] = {
    {"opening brackets", "{\"a\":", "[", "}", Expected::Malformed},
    {"opening braces", "", "{\"a\":", "}", Expected::Malformed},
    {"closing braces", "{", "}", "", Expected::Malformed},
    {"nested lists", "{\"a\":[0", ",[[[[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]]]]", "]}",
        Expected::Elements},
    {"quotes", "{", "\"", "}", Expected::Malformed},
    {"one key", "{\"a\":0", ",\"k\":[1]", "}", Expected::OneKey},
    {"keys that ascend", "{\"\":0", ",\"#\":0", "}", Expected::Keys},
    {"keys that descend", "{\"~\":0", ",\"@\":0", "}", Expected::Keys},
    {"long similar keys", "{\"\":0", ",\"00000000000000000000000000000000000000000000000000#\":0",
        "}", Expected::Keys},
    {"empty lists", "{\"a\":[0", ",[]", "]}", Expected::Elements},
    {"empty texts", "{\"a\":[0", ",\"\"", "]}", Expected::Elements},
    {"short numbers", "{\"a\":[0", ",0", "]}", Expected::Elements},
    {"one plain text", "{\"a\":\"", "x", "\"}", Expected::Text, 0, u"x"},
    {"separators", "{\"a\":\"", "\x01", "\"}", Expected::Text, 0, u"\x01"},
    {"backslashes", "{\"a\":\"", "\\\\", "\"}", Expected::Text, 0, u"\\"},
    {"escaped quotes", "{\"a\":\"", "\\\"", "\"}", Expected::Text, 0, u"\""},
    {"escaped zeros", "{\"a\":\"", "\\u0000", "\"}", Expected::Text, 0, {zero, 1}},
    {"unpaired surrogates", "{\"a\":\"", "\\ud800", "\"}", Expected::Text, 0, {unpaired, 1}},
    {"characters of two bytes", "{\"a\":\"", "\xc3\xa9", "\"}", Expected::Text, 0, u"\u00E9"},
    {"plain and escaped", "{\"a\":\"", "0123456789abcdef\\n", "\"}", Expected::Text, 0,
        u"0123456789abcdef\n"},
    {"digits", "{\"a\":", "9", "}", Expected::Malformed},
    {"digits of a fraction", "{\"a\":0.", "9", "}", Expected::Number, 1},
    {"zeros of a fraction", "{\"a\":0.", "0", "1}", Expected::Number, 0},
    {"digits of an exponent", "{\"a\":1e", "9", "}", Expected::Malformed},
    {"long numbers", "{\"a\":[0", ",1234567890123456789012345678901234567890.5e-20", "]}",
        Expected::Elements},
    {"spaces", "{\"a\":", " ", "0}", Expected::Number, 0},
    {"not closed", "{\"a\":\"", "x", "", Expected::Malformed},
};

struct Input {
    const Pattern& pattern;
    QByteArray text;
    int units;
};

Input inputOf(const Pattern& pattern, int size)
{
    QByteArray text = pattern.head;
    const QByteArray unit = pattern.unit;
    const int position = qMax(unit.indexOf('#'), unit.indexOf('@'));
    int units = size / unit.size();
    if (position < 0) {
        return {pattern, text + unit.repeated(units) + pattern.tail, units};
    }
    const int step = unit.at(position) == '#' ? 1 : -1;
    int number = 1500000000;
    for (units = 0; text.size() < size; ++units) {
        text += QByteArray(unit).replace(position, 1, QByteArray::number(number));
        number += step;
    }
    return {pattern, text + pattern.tail, units};
}

bool isAsExpected(const QVariantMap& read, const Input& input)
{
    const QVariant value = read.value(QStringLiteral("a"));
    switch (input.pattern.expected) {
    case Expected::Malformed:
        return read.isEmpty();
    case Expected::Number:
        return value.isValid() && value == QVariant(input.pattern.number);
    case Expected::Elements:
        return value.toList().size() == input.units + 1;
    case Expected::Text:
        return value.toString() == input.pattern.unitText.toString().repeated(input.units);
    case Expected::Keys:
        return read.size() == input.units + 1;
    case Expected::OneKey:
        return read.size() == 2 && read.value(QStringLiteral("k")) == QVariantList{1};
    }
    return false;
}

struct Measured {
    bool isRight;
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

/// The largest resident size of this process so far.
double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
#ifdef Q_OS_DARWIN
    constexpr double unitsPerMegabyte = 1024 * 1024; // bytes
#else
    constexpr double unitsPerMegabyte = 1024; // kilobytes
#endif
    return double(usage.ru_maxrss) / unitsPerMegabyte;
}

Measured measuredSince(double startMilliseconds)
{
    return {false, usedMilliseconds() - startMilliseconds, peakMegabytes()};
}

/// Reads a failed reply. No input has the key "error", so the error is the whole text.
Measured readReply(const Input& input)
{
    int argumentCount = 1;
    char name[] = "growth";
    std::array<char*, 2> arguments{name, nullptr};
    const QCoreApplication application(argumentCount, arguments.data());
    const double start = usedMilliseconds();
    PluginApiClient client(0);
    const QVariantMap read = client.parseResponse(500, input.text);
    Measured result = measuredSince(start);
    result.isRight =
        isAsExpected(read, input) && client.lastError() == QString::fromUtf8(input.text);
    return result;
}

/// Reads a field code and writes its cluster again.
Measured readFieldCode(const Input& input)
{
    const QString fieldCode = QString::fromUtf8(input.text);
    const double start = usedMilliseconds();
    const QVariantMap read = jsonFromFieldCode(fieldCode);
    const QString written = clusterToFieldCode({{QStringLiteral("citationCluster"), read}});
    Measured result = measuredSince(start);
    result.isRight = isAsExpected(read, input)
        && written.startsWith(QLatin1String("ADDIN CSL_CITATION {"))
        && isAsExpected(jsonFromFieldCode(written), input);
    return result;
}

/// Reads an argument file and writes its list again. The file is in UTF-16, twice the input's size.
Measured readArgumentFile(const Input& input)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("args"));
    const QString text = QString::fromUtf8(input.text);
    bool prepared = false;
    writeFile(path, text, &prepared);
    bool read = false;
    bool written = false;
    const double start = usedMilliseconds();
    const QStringList list = readArgsFile(path, &read);
    const int byteCount = writeArgsFile(path, list, &written);
    Measured result = measuredSince(start);
    result.isRight = prepared && read && written && list == text.split(QChar(argsFileSeparator))
        && byteCount == 2 * text.size() && QFileInfo(path).size() == byteCount;
    return result;
}

struct Reader {
    const char* name;
    Measured (*read)(const Input& input);
};

constexpr Reader readers[] = {
    {"reply", readReply}, {"field code", readFieldCode}, {"argument file", readArgumentFile}};

/// Measures in a child process, whose peak memory is then that of this input alone.
bool measure(const Reader& reader, const Pattern& pattern, int size, Measured* result)
{
    void* const shared =
        mmap(nullptr, sizeof(Measured), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        *static_cast<Measured*>(shared) = reader.read(inputOf(pattern, size));
        std::_Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    *result = *static_cast<const Measured*>(shared);
    munmap(shared, sizeof(Measured));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Returns the fastest of three runs. Some runs are slower because they wait for memory.
bool measureThrice(const Reader& reader, const Pattern& pattern, int size, Measured* fastest)
{
    for (int run = 0; run < 3; ++run) {
        Measured result{};
        if (!measure(reader, pattern, size, &result) || !result.isRight) {
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
            std::printf("%-13s %-24s crashed or gave a wrong result with %g MB\n", reader.name,
                pattern.name, megabytes);
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
    // The input grew ten times. Differences of a few milliseconds are noise.
    const bool growsTooFast = results[2].milliseconds > 20
        && (results[2].milliseconds > 50 * results[1].milliseconds
            || results[2].peakMegabytes > 50 * results[1].peakMegabytes);
    if (growsTooFast) {
        std::printf("%-13s %-24s grows faster than its input\n", reader.name, pattern.name);
    }
    return !growsTooFast;
}

} // namespace

int main(int argc, char* argv[])
{
    const double largest = argc > 1 ? std::atof(argv[1]) : 100;
    if (largest < 0.1 || largest > 1000) {
        std::fputs("usage: growth [LARGEST_MB], from 0.1 to 1000\n", stderr);
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
