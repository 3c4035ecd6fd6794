#include "service/DesktopSettings.h"

#include <cstdio>

/// Prints the port and the path that a new process reads from the application's settings.
int main()
{
    std::printf("%d\n%s\n", tessaronDesktopTcpPort(), tessaronDesktopPath().toUtf8().constData());
}
