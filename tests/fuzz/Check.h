#pragma once

#include <QtGlobal>

#include <cstddef>
#include <cstdint>

/// Runs one input. Each fuzz target defines this function. libFuzzer calls it for each input;
/// without libFuzzer, replay.cpp calls it for each file of a corpus.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Aborts the program unless `holds`, so that the fuzzer saves the input.
inline void check(bool holds, const char* property)
{
    if (!holds) {
        qFatal("Failed check: %s", property);
    }
}
