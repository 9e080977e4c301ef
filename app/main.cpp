// The program's entry point: message filter, application, main window, event loop.
#include "mainwindow.h"
#include "messagefilter.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    CMessageFilter::Install();
    QApplication application(argc, argv);
    MainWindow window;
    window.show();
    return application.exec();
}
