// The feature commands of viewlane-cli on the camera SDK: list, tree, get and set.
#pragma once

#include "clioptions.h"

#include <korvatin/gigevisiondeviceinfo.h>

#include <iosfwd>
#include <string>

class CKorvatinCamera;
class CKorvatinGenICamNodeT;

// Each command writes its result to `out` and throws (CKorvatinException) on the first error;
// main turns that into one line on standard error.
class CCliCommands {
public:
    CCliCommands(const CCliOptions& options, std::ostream& out);

    void List();
    void Tree(const std::string& device);
    void Get(const std::string& device, const std::string& feature);
    void Set(const std::string& device, const std::string& feature, const std::string& value);

    // The device whose serial number, IP address or MAC is `id`: asked directly when `id` is an
    // address, else found by discovery that ends as soon as it answers.
    GigEVisionDeviceInfo FindDevice(const std::string& id);
    // Finds `device` and connects `camera` to it.
    void ConnectTo(CKorvatinCamera& camera, const std::string& device);

private:
    static CKorvatinGenICamNodeT FindFeature(CKorvatinCamera& camera, const std::string& feature);
    void PrintNode(const CKorvatinGenICamNodeT& node, int depth, std::string& path);

    const CCliOptions& options_;
    std::ostream& out_;
};
