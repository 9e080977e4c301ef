// The feature commands of viewlane-cli on the camera SDK: list, tree, get and set.
#include "clicommands.h"

#include "featurevalue.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinfeaturehelp.h>

#include <algorithm>
#include <list>
#include <ostream>
#include <set>
#include <vector>

namespace {

// Large enough for every device of a big installation; the SDK never writes past it.
constexpr unsigned int kMaxDevices = 1024;

// One line of output never carries a line break of a device's text.
std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::replace(text.begin(), text.end(), '\r', ' ');
    std::replace(text.begin(), text.end(), '\t', ' ');
    return text;
}

} // namespace

CCliCommands::CCliCommands(const CCliOptions& options, std::ostream& out)
    : options_(options), out_(out) {}

namespace {

std::vector<GigEVisionDeviceInfo> discover(const CCliOptions& options) {
    ListDevicesSettings settings{};
    settings.timeoutMs = options.timeoutMs;
    settings.interfaceAddress =
        options.interfaceAddress.empty() ? nullptr : options.interfaceAddress.c_str();
    settings.broadcast = options.broadcast ? 1 : 0;
    std::vector<GigEVisionDeviceInfo> devices(kMaxDevices);
    unsigned int count = 0;
    CKorvatinCamera::ListDevices(devices.data(), kMaxDevices, &count, &settings);
    devices.resize(std::min(count, kMaxDevices));
    return devices;
}

} // namespace

void CCliCommands::List() {
    const std::vector<GigEVisionDeviceInfo> devices = discover(options_);
    if (!options_.noHeader)
        out_ << "MANUFACTURER\tSERIAL\tIP\tMODEL\tMAC\tINTERFACE\n";
    for (const GigEVisionDeviceInfo& device : devices) {
        out_ << oneLine(device.manufacturerName) << '\t' << oneLine(device.serialNumber) << '\t'
             << device.currentIp << '\t' << oneLine(device.modelName) << '\t' << device.macAddress
             << '\t' << device.hostInterfaceAddress << '\n';
    }
}

GigEVisionDeviceInfo CCliCommands::FindDevice(const std::string& id) {
    ListDevicesSettings settings{};
    settings.timeoutMs = options_.timeoutMs;
    settings.interfaceAddress =
        options_.interfaceAddress.empty() ? nullptr : options_.interfaceAddress.c_str();
    settings.broadcast = options_.broadcast ? 1 : 0;
    GigEVisionDeviceInfo device{};
    if (!CKorvatinCamera::FindDevice(id.c_str(), &device, &settings))
        throw CKorvatinException("unknown device \"" + id +
                                     "\": no device with this serial number, IP address or "
                                     "MAC answered discovery within " +
                                     std::to_string(options_.timeoutMs) + " ms",
                                 QRN_ERR_NOT_FOUND);
    return device;
}

void CCliCommands::ConnectTo(CKorvatinCamera& camera, const std::string& device) {
    const GigEVisionDeviceInfo info = FindDevice(device);
    camera.Connect(info, nullptr);
}

CKorvatinGenICamNodeT CCliCommands::FindFeature(CKorvatinCamera& camera,
                                                const std::string& feature) {
    CKorvatinGenICamNodeT node;
    try {
        node = camera.GetNodeByName(feature.c_str());
    } catch (const CKorvatinException& e) {
        if (e.Code() != QRN_ERR_NOT_FOUND)
            throw;
    }
    if (!node.IsValid())
        throw CKorvatinException("unknown feature \"" + feature +
                                     "\": the device's description has no such feature",
                                 QRN_ERR_NOT_FOUND);
    return node;
}

void CCliCommands::Tree(const std::string& device) {
    CKorvatinCamera camera;
    ConnectTo(camera, device);
    std::string path;
    PrintNode(camera.GetGENiCAMRoot(), 0, path);
}

// Every failure of one node is printed on that node's line, in the place of what could not be
// had; the walk always goes on.
void CCliCommands::PrintNode(const CKorvatinGenICamNodeT& node, int depth, std::string& path) {
    // --visibility leaves out the features above the user's level, and what is under them.
    EKorvatinVisibility level = EKorvatinVisibility::Guru;
    if (CKorvatinFeatureHelp::ParseVisibility(options_.visibility, &level) &&
        !CKorvatinFeatureHelp::ShownAt(CKorvatinFeatureHelp::Visibility(node), level))
        return;
    const auto field = [](const auto& get) -> std::string {
        try {
            return oneLine(get());
        } catch (const std::exception& e) {
            return oneLine(e.what());
        }
    };
    QrnParamDataType type = QRN_PARAM_OTHER;
    bool typeKnown = false;
    try {
        type = node.DataType();
        typeKnown = true;
    } catch (const std::exception&) {
        // The type field below shows why.
    }
    const std::string name = field([&] { return CFeatureValue::Name(node); });
    const std::string access =
        field([&] { return std::string(CFeatureValue::AccessWord(node.AccessMode())); });
    std::string value;
    if (!typeKnown) {
        value = field([&] { return CFeatureValue::TypeWord(node.DataType()); });
    } else if (type != QRN_PARAM_CATEGORY && type != QRN_PARAM_COMMAND && access != "RO" &&
               access != "RW") {
        // A feature that is not readable now is not read.
        value = "not readable (access mode " + access + ")";
    } else {
        value = field([&] { return CFeatureValue::Read(node); });
    }
    out_ << std::string(size_t(depth) * 2, ' ')
         << field([&] { return CFeatureValue::DisplayName(node); }) << '\t' << name << '\t'
         << field([&] { return CFeatureValue::TypeWord(node.DataType()); }) << '\t' << access
         << '\t' << value << '\n';

    if (type != QRN_PARAM_CATEGORY)
        return;
    // A category listed inside itself, directly or further down, is printed but not entered
    // again.
    const std::string marker = '\n' + name + '\n';
    if (path.find(marker) != std::string::npos)
        return;
    std::list<CKorvatinGenICamNodeT> features;
    try {
        node.GetCategoryFeatures(&features);
    } catch (const std::exception& e) {
        out_ << std::string(size_t(depth + 1) * 2, ' ') << '\t' << oneLine(e.what()) << '\n';
        return;
    }
    const size_t pathLength = path.size();
    path += marker;
    for (const CKorvatinGenICamNodeT& feature : features)
        PrintNode(feature, depth + 1, path);
    path.resize(pathLength);
}

void CCliCommands::Get(const std::string& device, const std::string& feature) {
    CKorvatinCamera camera;
    ConnectTo(camera, device);
    const CKorvatinGenICamNodeT node = FindFeature(camera, feature);
    const QrnParamDataType type = node.DataType();
    if (type == QRN_PARAM_CATEGORY || type == QRN_PARAM_COMMAND || type > QRN_PARAM_CATEGORY)
        throw CKorvatinException(feature + " is of type " + CFeatureValue::TypeWord(type) +
                                     " and has no value to read",
                                 QRN_ERR_INVALID);
    const CKorvatinGenICamNodeT::EAccessMode access = node.AccessMode();
    if (access != CKorvatinGenICamNodeT::RO && access != CKorvatinGenICamNodeT::RW)
        throw CKorvatinException(feature + " is not readable (access mode " +
                                     CFeatureValue::AccessWord(access) + ")",
                                 QRN_ERR_ACCESS);
    out_ << CFeatureValue::Read(node) << '\n';
}

void CCliCommands::Set(const std::string& device, const std::string& feature,
                       const std::string& value) {
    CKorvatinCamera camera;
    ConnectTo(camera, device);
    CKorvatinGenICamNodeT node = FindFeature(camera, feature);
    CFeatureValue::Write(node, value);
}
