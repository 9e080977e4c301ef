// The program's entry point: message filter, application, main window, event loop.
#include "mainwindow.h"
#include "messagefilter.h"

#include <korvatin/korvatincamera.h>

#include <QApplication>

#include <cstdio>
#include <cstring>

namespace {

const char kUsage[] =
    "Usage: viewlane [--help] [--version] [Qt options]\n"
    "The Korvatin Viewlane window: finds GigE Vision cameras on the network, connects to one,\n"
    "shows its live image and edits its GenICam features; records AVI files, saves frames and\n"
    "runs the camera's maintenance jobs (force IP, reboot, IP configuration, firmware upgrade,\n"
    "description and LUT programming, device settings files).\n"
    "\n"
    "Options:\n"
    "  --help      show this text\n"
    "  --version   show the versions of the viewer and of the camera SDK\n"
    "Other options are Qt's own (-platform, -style, ...).\n"
    "\n"
    "Settings: settings.ini beside the program when that folder is writable, else\n"
    "$XDG_CONFIG_HOME/korvatin-viewlane/settings.ini (~/.config/korvatin-viewlane/ by default).\n"
    "\n"
    "Environment:\n"
    "  KORVATIN_GEV_INTERFACES  comma-separated interface names or addresses that discovery,\n"
    "                           force IP and reboot use (default: every interface)\n"
    "  KORVATIN_DIR             folder whose Release_Notes.txt the About box shows\n";

} // namespace

int main(int argc, char* argv[]) {
    // Answered before Qt starts, so they work without a display.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("viewlane %s (Korvatin Viewlane), SDK %s\n", KORVATIN_VIEWLANE_VERSION,
                        CKorvatinCamera::SDKVersion());
            return 0;
        }
    }
    CMessageFilter::Install();
    QApplication application(argc, argv);
    MainWindow window;
    window.show();
    return application.exec();
}
