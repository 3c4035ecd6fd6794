#include "apiclient/ProcessorPin.h"

// On macOS a program cannot choose its processor.
ProcessorPin::ProcessorPin() = default;

ProcessorPin::~ProcessorPin() = default;
