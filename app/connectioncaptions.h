// The connection captions the status bar shows, shared by the whole program.
#pragma once

#include <QString>

// Created before main runs, like every object with static storage.
extern const QString g_strNotConnected; // "Not Connected"
extern const QString g_strConnected;    // "Connected"
