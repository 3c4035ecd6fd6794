#pragma once

#include <QtGlobal>

/// Tunes the memory allocator for one short run with a document whose argument file has
/// `argsFileSize` bytes: ProcessMemory_linux.cpp for glibc; elsewhere the system's defaults serve
/// (ProcessMemory_mac.cpp). Call it before the document is read. Nothing depends on its success.
void prepareProcessMemory(qint64 argsFileSize);
