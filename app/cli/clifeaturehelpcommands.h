// viewlane-cli describe: what one feature says about itself, as the window's tool tip shows it.
#pragma once

#include <iosfwd>
#include <string>

class CCliCommands;

class CCliFeatureHelpCommands {
public:
    CCliFeatureHelpCommands(CCliCommands& commands, std::ostream& out);

    // One "Field: text" line per help field of `feature`; throws CKorvatinException for an
    // unknown device or feature.
    void Describe(const std::string& device, const std::string& feature);

private:
    CCliCommands& commands_;
    std::ostream& out_;
};
