// Destroys a streaming session without stopping it, for the test of what that does to the process.
#include "loopbackdevice.h"
#include "streamingfixture.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>
#include <cstring>

// Usage: viewlane-thread-teardown-probe ADDRESS grab|acquisition
// Connects to the camera, starts the grab thread alone (grab) or the whole acquisition, prints
// "streaming" and then lets the session go out of scope while its threads still run.
int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    CAppSettings settings(dir.filePath("none.ini"));
    {
        CKorvatinCameraViewlane session(settings);
        session.ConnectDevice(LoopbackDevice(argv[1]));
        if (std::strcmp(argv[2], "grab") == 0)
            session.StartGrab();
        else
            session.StartAcquisition();
        std::puts("streaming");
        std::fflush(stdout);
    }
    std::puts("session destroyed");
    return 0;
}
