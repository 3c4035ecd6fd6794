#pragma once

/// Tunes the memory allocator for one short run with one large document: ProcessMemory_linux.cpp
/// for glibc; elsewhere the system's defaults serve (ProcessMemory_mac.cpp). Call it before the
/// first large allocation. Nothing depends on its success.
void prepareProcessMemory();
