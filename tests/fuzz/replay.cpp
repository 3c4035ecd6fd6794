// Runs a target on the files and folders named on the command line, without libFuzzer: to run a
// corpus as a test with any compiler, and to measure its coverage.

#include "tests/fuzz/Check.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <vector>

namespace {

bool replay(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray content = file.readAll();
    // Without QByteArray's terminating zero, so that the sanitizer reports a read past the end.
    const std::vector<uint8_t> bytes(content.begin(), content.end());
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

bool replayFolder(const QString& path)
{
    QDirIterator files(path, QDir::Files);
    bool any = false;
    while (files.hasNext()) {
        any = replay(files.next()) || any;
    }
    return any;
}

} // namespace

/// Fails if a file cannot be read or a folder is empty.
int main(int argc, char* argv[])
{
    bool complete = argc > 1;
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        complete = (QFileInfo(path).isDir() ? replayFolder(path) : replay(path)) && complete;
    }
    if (!complete) {
        std::fputs("usage: fuzz_TARGET FILE_OR_FOLDER...\n", stderr);
    }
    return complete ? 0 : 1;
}
