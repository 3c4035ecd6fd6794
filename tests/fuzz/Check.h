#pragma once

#include <QtGlobal>

#include <cstddef>
#include <cstdint>

/// What libFuzzer calls for each input; each target is one such function. Without libFuzzer
/// replay.cpp calls it for the files of a corpus.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Ends the program, so that the fuzzer keeps the input, where `property` does not hold.
inline void check(bool holds, const char* property)
{
    if (!holds) {
        qFatal("Does not hold: %s", property);
    }
}
