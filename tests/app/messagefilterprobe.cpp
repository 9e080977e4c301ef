// Emits the messages given on its command line as Qt warnings, through the installed filter.
#include "messagefilter.h"

#include <QtGlobal>

int main(int argc, char** argv) {
    CMessageFilter::Install();
    for (int i = 1; i < argc; ++i)
        qWarning("%s", argv[i]);
    return 0;
}
