#pragma once

/// Makes the process safe to write from, whatever its parent left it with. A standard stream
/// that is closed is opened on the null device: otherwise the next file or socket would take its
/// number, and the status would be printed into it. A write past a file-size limit or into a
/// pipe without a reader fails instead of ending the process.
void secureStandardStreams();

/// Lets only the calling thread's messages pass to Qt's message log from now on: Qt's network
/// thread warns of its own accord, and standard error is for the program's own messages.
void silenceOtherThreads();

/// Writes `text` and a newline to standard output and flushes it. A failure is not told: what it
/// says stands in the result-ready file too.
void printLine(const char* text);
