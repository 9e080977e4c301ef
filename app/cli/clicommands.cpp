// The feature commands of viewlane-cli on the camera SDK: list, tree, get and set.
#include "clicommands.h"

#include "clijson.h"
#include "featurevalue.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinfeaturehelp.h>

#include <algorithm>
#include <functional>
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
    if (options_.json) {
        QJsonArray list;
        for (const GigEVisionDeviceInfo& device : devices) {
            list.append(QJsonObject{{"manufacturer", CCliJson::Text(device.manufacturerName)},
                                    {"serial", CCliJson::Text(device.serialNumber)},
                                    {"ip", CCliJson::Text(device.currentIp)},
                                    {"model", CCliJson::Text(device.modelName)},
                                    {"mac", CCliJson::Text(device.macAddress)},
                                    {"interface", CCliJson::Text(device.hostInterfaceAddress)}});
        }
        CCliJson::Write(out_, QJsonObject{{"devices", list}});
        return;
    }
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
    ConnectForWriting(device, info, [&] { camera.Connect(info, nullptr); });
}

void CCliCommands::ConnectForReading(CKorvatinCamera& camera, const std::string& device) {
    camera.ConnectForReading(FindDevice(device), nullptr);
}

CKorvatinException CCliCommands::ControlError(const std::string& device,
                                              const GigEVisionDeviceInfo& info,
                                              const CKorvatinException& reason) {
    std::string controller;
    try {
        controller = CKorvatinCamera::ControllingHost(info);
    } catch (const CKorvatinException&) {
        return reason; // the device stopped answering: the connection's own error says more
    }
    if (controller.empty())
        return reason;
    return CKorvatinException(device + " is controlled by another host (" + controller + ")",
                              QRN_ERR_ACCESS);
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

struct CCliCommands::TreeNode {
    std::string displayName;
    std::string name;
    std::string type;
    std::string access;
    std::string value;
    std::string error; // why a category's features could not be listed
    std::vector<TreeNode> features;
};

void CCliCommands::Tree(const std::string& device) {
    CKorvatinCamera camera;
    ConnectForReading(camera, device);
    TreeNode root;
    std::string path;
    // --visibility leaves out the features above the user's level, and what is under them.
    EKorvatinVisibility level = EKorvatinVisibility::Guru;
    const bool filtered = CKorvatinFeatureHelp::ParseVisibility(options_.visibility, &level);
    ReadNode(camera.GetGENiCAMRoot(), path, filtered ? &level : nullptr, root);
    if (options_.json) {
        const std::function<QJsonObject(const TreeNode&)> toJson = [&](const TreeNode& node) {
            QJsonObject object{{"displayName", CCliJson::Text(node.displayName)},
                               {"name", CCliJson::Text(node.name)},
                               {"type", CCliJson::Text(node.type)},
                               {"access", CCliJson::Text(node.access)},
                               {"value", CCliJson::Text(node.value)}};
            if (!node.error.empty())
                object.insert("error", CCliJson::Text(node.error));
            if (!node.features.empty()) {
                QJsonArray features;
                for (const TreeNode& feature : node.features)
                    features.append(toJson(feature));
                object.insert("features", features);
            }
            return object;
        };
        CCliJson::Write(out_, QJsonObject{{"root", toJson(root)}});
        return;
    }
    PrintNode(root, 0);
}

// Every failure of one node is kept in that node's fields, in the place of what could not be
// had; the walk always goes on.
void CCliCommands::ReadNode(const CKorvatinGenICamNodeT& node, std::string& path,
                            const EKorvatinVisibility* level, TreeNode& into) {
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
    into.displayName = field([&] { return CFeatureValue::DisplayName(node); });
    into.name = field([&] { return CFeatureValue::Name(node); });
    into.type = field([&] { return CFeatureValue::TypeWord(node.DataType()); });
    into.access = field([&] { return std::string(CFeatureValue::AccessWord(node.AccessMode())); });
    if (!typeKnown) {
        into.value = into.type;
    } else if (type != QRN_PARAM_CATEGORY && type != QRN_PARAM_COMMAND && into.access != "RO" &&
               into.access != "RW") {
        // A feature that is not readable now is not read.
        into.value = "not readable (access mode " + into.access + ")";
    } else {
        into.value = field([&] { return CFeatureValue::Read(node); });
    }

    if (type != QRN_PARAM_CATEGORY)
        return;
    // A category listed inside itself, directly or further down, is shown but not entered
    // again.
    const std::string marker = '\n' + into.name + '\n';
    if (path.find(marker) != std::string::npos)
        return;
    std::list<CKorvatinGenICamNodeT> features;
    try {
        node.GetCategoryFeatures(&features);
    } catch (const std::exception& e) {
        into.error = oneLine(e.what());
        return;
    }
    const size_t pathLength = path.size();
    path += marker;
    into.features.reserve(features.size());
    for (const CKorvatinGenICamNodeT& feature : features) {
        if (level != nullptr &&
            !CKorvatinFeatureHelp::ShownAt(CKorvatinFeatureHelp::Visibility(feature), *level))
            continue;
        into.features.emplace_back();
        ReadNode(feature, path, level, into.features.back());
    }
    path.resize(pathLength);
}

void CCliCommands::PrintNode(const TreeNode& node, int depth) {
    out_ << std::string(size_t(depth) * 2, ' ') << node.displayName << '\t' << node.name << '\t'
         << node.type << '\t' << node.access << '\t' << node.value << '\n';
    if (!node.error.empty())
        out_ << std::string(size_t(depth + 1) * 2, ' ') << '\t' << node.error << '\n';
    for (const TreeNode& feature : node.features)
        PrintNode(feature, depth + 1);
}

void CCliCommands::Get(const std::string& device, const std::string& feature) {
    CKorvatinCamera camera;
    ConnectForReading(camera, device);
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
    const std::string value = CFeatureValue::Read(node);
    if (options_.json) {
        CCliJson::Write(out_, QJsonObject{{"feature", CCliJson::Text(feature)},
                                          {"value", CCliJson::Text(value)}});
        return;
    }
    out_ << value << '\n';
}

void CCliCommands::Set(const std::string& device, const std::string& feature,
                       const std::string& value) {
    CKorvatinCamera camera;
    ConnectTo(camera, device);
    CKorvatinGenICamNodeT node = FindFeature(camera, feature);
    CFeatureValue::Write(node, value);
}
