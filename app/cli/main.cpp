// viewlane-cli: lists cameras, reads, writes and walks their features, grabs, records and saves
// frames, and changes their network settings.
#include "clicommands.h"
#include "clidoctor.h"
#include "clifeaturehelpcommands.h"
#include "climaintenancecommands.h"
#include "clinetworkcommands.h"
#include "clioptions.h"
#include "clistreamcommands.h"

#include <korvatin/korvatincamera.h>

#include <glib.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string>

namespace {

// Every error is one line on standard error.
int report(const std::string& message, int status) {
    std::string line = message;
    for (char& c : line) {
        if (c == '\n' || c == '\r')
            c = ' ';
    }
    std::cerr << "viewlane-cli: " << line << std::endl;
    return status;
}

// Aravis also reports some device faults through GLib's log; the exception the SDK throws for
// the same fault is what the user gets, as one line. Only fatal messages still go out.
GLogWriterOutput quietLogWriter(GLogLevelFlags level, const GLogField* fields, gsize count,
                                gpointer data) {
    if (level & G_LOG_LEVEL_ERROR)
        return g_log_writer_default(level, fields, count, data);
    return G_LOG_WRITER_HANDLED;
}

// Ctrl+C ends a grab or a recording cleanly: the session stops and the file is closed.
void interruptHandler(int) {
    CCliStreamCommands::Interrupt();
}

} // namespace

int main(int argc, char** argv) {
    g_log_set_writer_func(quietLogWriter, nullptr, nullptr);
    CCliOptions options;
    try {
        options = CCliOptions::Parse(argc, argv);
    } catch (const CUsageError& e) {
        return report(std::string(e.what()) + " (see viewlane-cli --help)", 2);
    }
    if (options.help) {
        std::cout << CCliOptions::Usage();
        return 0;
    }
    if (options.version) {
        std::cout << "viewlane-cli " << KORVATIN_VIEWLANE_VERSION << " (Korvatin Viewlane), SDK "
                  << CKorvatinCamera::SDKVersion() << '\n';
        return 0;
    }
    try {
        CCliCommands commands(options, std::cout);
        CCliStreamCommands streamCommands(options, commands, std::cout);
        CCliNetworkCommands networkCommands(options, commands, std::cout);
        const auto& args = options.arguments;
        if (options.command == "grab" || options.command == "record" ||
            options.command == "save-frame" || options.command == "histogram") {
            std::signal(SIGINT, interruptHandler);
            std::signal(SIGTERM, interruptHandler);
        }
        CCliMaintenanceCommands maintenance(commands, std::cout);
        // The maintenance jobs print their own final text; a job that failed only sets the
        // exit status.
        bool jobSucceeded = true;
        if (options.command == "save-settings")
            jobSucceeded = maintenance.SaveSettings(args[0], args[1]);
        else if (options.command == "load-settings")
            jobSucceeded = maintenance.LoadSettings(args[0], args[1]);
        else if (options.command == "program-lut")
            jobSucceeded = maintenance.ProgramLut(args[0], args[1]);
        else if (options.command == "firmware-upgrade")
            jobSucceeded = maintenance.FirmwareUpgrade(args[0], args[1], options.alternate);
        else if (options.command == "program-xml")
            jobSucceeded = maintenance.ProgramXml(args[0], args[1]);
        else if (options.command == "grab")
            streamCommands.Grab(args[0]);
        else if (options.command == "record")
            streamCommands.Record(args[0], args[1]);
        else if (options.command == "save-frame")
            streamCommands.SaveFrame(args[0], args[1]);
        else if (options.command == "doctor")
            jobSucceeded = CCliDoctor(commands, std::cout).Run(args.empty() ? "" : args[0]);
        else if (options.command == "list")
            commands.List();
        else if (options.command == "tree")
            commands.Tree(args[0]);
        else if (options.command == "get")
            commands.Get(args[0], args[1]);
        else if (options.command == "force-ip")
            networkCommands.ForceIp(args[0], args[1], args[2], args[3]);
        else if (options.command == "reboot")
            networkCommands.Reboot(args[0]);
        else if (options.command == "ip-config")
            networkCommands.IpConfig(args[0]);
        else if (options.command == "histogram")
            streamCommands.Histogram(args[0]);
        else if (options.command == "describe")
            CCliFeatureHelpCommands(commands, std::cout).Describe(args[0], args[1]);
        else
            commands.Set(args[0], args[1], args[2]);
        std::cout.flush();
        if (!jobSucceeded)
            return 1;
    } catch (const std::exception& e) {
        std::cout.flush();
        return report(e.what(), 1);
    }
    return 0;
}
