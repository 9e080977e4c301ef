// The feature commands of viewlane-cli on the camera SDK: list, tree, get and set.
#pragma once

#include "clioptions.h"

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinfeaturehelp.h>

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
    // Finds `device` and connects `camera` to it, taking control. A device that another host
    // controls is refused with "DEVICE is controlled by another host (ADDR)".
    void ConnectTo(CKorvatinCamera& camera, const std::string& device);
    // Finds `device` and opens it for reading only, which works while another host controls it.
    void ConnectForReading(CKorvatinCamera& camera, const std::string& device);
    // Runs `connect`, which connects to `info` (the device the user named `device`) for
    // writing; when the device refuses control because another host holds it, throws the
    // "DEVICE is controlled by another host (ADDR)" error instead of the SDK's.
    template <typename Connect>
    static void ConnectForWriting(const std::string& device, const GigEVisionDeviceInfo& info,
                                  const Connect& connect);
    // The error for `device` when another host holds its control: "DEVICE is controlled by
    // another host (ADDR)"; `reason`, the error the connection gave, when no other host does.
    static CKorvatinException ControlError(const std::string& device,
                                           const GigEVisionDeviceInfo& info,
                                           const CKorvatinException& reason);

    // The feature named `feature`; throws "unknown feature" when the description has none.
    static CKorvatinGenICamNodeT FindFeature(CKorvatinCamera& camera, const std::string& feature);

private:
    // One feature of the tree command, with everything read from it as text; a field that could
    // not be read holds why.
    struct TreeNode;
    // `level`: the --visibility level features are shown up to; null shows every feature.
    static void ReadNode(const CKorvatinGenICamNodeT& node, std::string& path,
                         const EKorvatinVisibility* level, TreeNode& into);
    void PrintNode(const TreeNode& node, int depth);

    const CCliOptions& options_;
    std::ostream& out_;
};

template <typename Connect>
void CCliCommands::ConnectForWriting(const std::string& device, const GigEVisionDeviceInfo& info,
                                     const Connect& connect) {
    try {
        connect();
    } catch (const CKorvatinException& e) {
        if (e.Code() != QRN_ERR_ACCESS)
            throw;
        throw ControlError(device, info, e);
    }
}
