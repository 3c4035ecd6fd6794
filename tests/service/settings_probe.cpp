#include "service/DesktopSettings.h"

#include <cstdio>

/// Prints what a fresh process reads from the application's settings: the port and the path.
int main()
{
    std::printf("%d\n%s\n", tessaronDesktopTcpPort(), tessaronDesktopPath().toUtf8().constData());
}
