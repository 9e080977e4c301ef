// The connection captions the status bar shows, shared by the whole program.
#include "connectioncaptions.h"

const QString g_strNotConnected = QStringLiteral("Not Connected");
const QString g_strConnected = QStringLiteral("Connected");
