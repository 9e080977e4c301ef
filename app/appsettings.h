// The program's configuration: settings.ini read once at start-up, recording settings written back.
#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>

#include <cstdint>

// Reads the eleven keys of the INI file once, in the constructor, into plain public fields that
// keep their values for the whole run. A missing or unreadable file is not an error: every field
// then holds its default. Nothing is written back except by SaveRecordingSettings().
class CAppSettings : public QSettings {
public:
    explicit CAppSettings(const QString& fileName);

    // Writes aviFileName and maxRecordedFrames to the [avi] group, in that order, and syncs.
    void SaveRecordingSettings();

    // Where the viewer keeps settings.ini: beside the program in `programDir` when that folder is
    // writable (a build tree, a folder of one's own), else, for an installed program, in
    // $XDG_CONFIG_HOME/korvatin-viewlane/ ($HOME/.config/korvatin-viewlane/ when that is unset
    // or not absolute). The folder is made when the file is first written.
    static QString FileNameFor(const QString& programDir);

    // The typed default of one of the eleven keys ("host/programXML" ...), an invalid QVariant
    // for any other key.
    static QVariant DefaultValue(const QString& key);

    bool programXML;               // host/programXML: offer XML programming
    bool showDropFrame;            // host/showDropFrame: show the dropped-frame count
    int32_t discoveryTimeout;      // host/discoveryTimeout: discovery time-out in ms
    int32_t GVCPTimeOut;           // host/GVCPTimeOut: control-channel time-out, SDK units
    int32_t getFrameTimeout;       // host/getFrameTimeout: frame wait of the grab thread in ms
    bool heartbeat;                // host/heartbeat: keep the connection's heartbeat on
    QString localXml;              // host/localXml: GenICam file used instead of the camera's
    QString aviFileName;           // avi/aviFileName: file name of a recording
    int32_t maxRecordedFrames;     // avi/maxRecordedFrames: frame limit, 0 = unlimited
    int32_t allocatedBuffersCount; // resource/allocatedBuffersCount: stream buffers
    int32_t maxBitsPerPixel;       // resource/maxBitsPerPixel: bound for the display pixel type
};
