// Runs viewlane-cli as a user does and keeps what it printed, for the command-line tests.
#pragma once

#include "testnetwork.h"

#include <QProcess>
#include <QString>
#include <QStringList>

struct CliRun {
    int exitCode = -1; // -1 when it crashed or did not finish
    QString out;
    QStringList errLines;
};

// Runs build/bin/viewlane-cli with `arguments` and waits at most a minute for it.
inline CliRun RunCli(const QStringList& arguments) {
    QProcess process;
    process.start(TestNetwork::binDir() + "/viewlane-cli", arguments);
    CliRun run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        run.errLines << "viewlane-cli did not finish";
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    run.errLines =
        QString::fromLocal8Bit(process.readAllStandardError()).split('\n', Qt::SkipEmptyParts);
    return run;
}
