#pragma once

#include <QDebug>

#include <random>

/// The duration and the random numbers of a long test. BRIDGE_TEST_FULL=1 in the environment asks
/// for all rounds. BRIDGE_TEST_SEED=<number> repeats the random numbers of an earlier run.

/// Returns `full` with BRIDGE_TEST_FULL=1 and otherwise `ordinary`.
inline int rounds(int ordinary, int full)
{
    return qEnvironmentVariableIntValue("BRIDGE_TEST_FULL") != 0 ? full : ordinary;
}

/// Returns a generator and logs its seed.
inline std::mt19937_64 seededGenerator()
{
    bool given = false;
    int seed = qEnvironmentVariableIntValue("BRIDGE_TEST_SEED", &given);
    if (!given) {
        seed = int(std::random_device()() & 0x7fffffffU);
    }
    qInfo("BRIDGE_TEST_SEED=%d", seed);
    return std::mt19937_64(std::mt19937_64::result_type(seed));
}
