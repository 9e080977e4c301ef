// viewlane-cli describe: what one feature says about itself, as the window's tool tip shows it.
#include "clifeaturehelpcommands.h"

#include "clicommands.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinfeaturehelp.h>

#include <algorithm>
#include <ostream>

CCliFeatureHelpCommands::CCliFeatureHelpCommands(CCliCommands& commands, std::ostream& out)
    : commands_(commands), out_(out) {}

void CCliFeatureHelpCommands::Describe(const std::string& device, const std::string& feature) {
    CKorvatinCamera camera;
    // Only reads: works beside the host that controls the camera, as get and tree do.
    commands_.ConnectForReading(camera, device);
    const CKorvatinGenICamNodeT node = CCliCommands::FindFeature(camera, feature);
    for (CKorvatinFeatureHelp::Field field : CKorvatinFeatureHelp::Fields(node)) {
        // One field a line: a description's own line breaks become spaces.
        std::replace(field.text.begin(), field.text.end(), '\n', ' ');
        std::replace(field.text.begin(), field.text.end(), '\r', ' ');
        out_ << field.label << ": " << field.text << '\n';
    }
}
