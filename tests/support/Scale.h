#pragma once

#include <QDebug>

#include <random>

/// How much a long test does and with which random numbers. The environment says it:
/// BRIDGE_TEST_FULL=1 for the full numbers, BRIDGE_TEST_SEED=<number> for those of an earlier run.

/// The number of rounds: `full` or, as long as nobody asks for it, `ordinary`.
inline int rounds(int ordinary, int full)
{
    return qEnvironmentVariableIntValue("BRIDGE_TEST_FULL") != 0 ? full : ordinary;
}

/// A generator whose seed is told on the test's output.
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
