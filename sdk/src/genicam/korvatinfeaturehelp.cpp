// What a feature says about itself, read from its GenICam node.
#include "korvatin/korvatinfeaturehelp.h"

#include "genicamdescription.h"
#include "gobjectref.h"
#include "korvatin/korvatinexception.h"

#include <arv.h>

#include <cctype>
#include <cstdio>
#include <list>

using korvatin::GErrorPtr;
using korvatin::Out;

namespace {

std::string textOf(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

bool isInteger(void* node) {
    return ARV_IS_GC_INTEGER(node) && !ARV_IS_GC_ENUMERATION(node);
}

// Reads that may reach the device report their failure in the field's text.
std::string failureText(const GError* error) {
    return std::string("not available now (") + (error ? error->message : "unknown error") + ")";
}

std::string numberText(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

const char* representationWord(ArvGcRepresentation representation) {
    switch (representation) {
    case ARV_GC_REPRESENTATION_LINEAR:
        return "Linear";
    case ARV_GC_REPRESENTATION_LOGARITHMIC:
        return "Logarithmic";
    case ARV_GC_REPRESENTATION_BOOLEAN:
        return "Boolean";
    case ARV_GC_REPRESENTATION_PURE_NUMBER:
        return "PureNumber";
    case ARV_GC_REPRESENTATION_HEX_NUMBER:
        return "HexNumber";
    case ARV_GC_REPRESENTATION_IPV4_ADDRESS:
        return "IPV4Address";
    case ARV_GC_REPRESENTATION_MAC_ADDRESS:
        return "MACAddress";
    default:
        return nullptr;
    }
}

// "min .. max", with the side a description leaves open said so.
void addIntegerRange(void* node, std::vector<CKorvatinFeatureHelp::Field>& fields) {
    ArvGcInteger* integer = ARV_GC_INTEGER(node);
    GErrorPtr minError, maxError, incError;
    const int64_t minimum = arv_gc_integer_get_min(integer, Out(minError));
    const int64_t maximum = arv_gc_integer_get_max(integer, Out(maxError));
    if (minError)
        fields.push_back({"Range", failureText(minError.get())});
    else if (maxError)
        fields.push_back({"Range", failureText(maxError.get())});
    else
        fields.push_back({"Range", std::to_string(minimum) + " .. " + std::to_string(maximum)});
    const int64_t increment = arv_gc_integer_get_inc(integer, Out(incError));
    if (incError)
        fields.push_back({"Increment", failureText(incError.get())});
    else
        fields.push_back({"Increment", std::to_string(increment > 0 ? increment : 1)});
}

void addFloatRange(void* node, std::vector<CKorvatinFeatureHelp::Field>& fields) {
    ArvGcFloat* number = ARV_GC_FLOAT(node);
    GErrorPtr minError, maxError, incError;
    const double minimum = arv_gc_float_get_min(number, Out(minError));
    const double maximum = arv_gc_float_get_max(number, Out(maxError));
    if (minError)
        fields.push_back({"Range", failureText(minError.get())});
    else if (maxError)
        fields.push_back({"Range", failureText(maxError.get())});
    else
        fields.push_back({"Range", numberText(minimum) + " .. " + numberText(maximum)});
    // A float without an increment is continuous: Aravis then answers with an error or with
    // the smallest positive double, and neither is a step a user can take.
    const double increment = arv_gc_float_get_inc(number, Out(incError));
    if (!incError && increment > 1e-300)
        fields.push_back({"Increment", numberText(increment)});
}

void addEntries(void* node, std::vector<CKorvatinFeatureHelp::Field>& fields) {
    // Aravis keeps the entries last first; the user reads them in the description's order.
    std::vector<std::string> names;
    for (const GSList* item = arv_gc_enumeration_get_entries(ARV_GC_ENUMERATION(node));
         item != nullptr; item = item->next) {
        if (!ARV_IS_GC_ENUM_ENTRY(item->data))
            continue;
        ArvGcFeatureNode* entry = ARV_GC_FEATURE_NODE(item->data);
        GErrorPtr implementedError, availableError;
        // Entries this device does not offer now are not offered to the user either.
        const bool offered =
            arv_gc_feature_node_is_implemented(entry, Out(implementedError)) && !implementedError &&
            arv_gc_feature_node_is_available(entry, Out(availableError)) && !availableError;
        if (offered)
            names.push_back(textOf(arv_gc_feature_node_get_name(entry)));
    }
    std::string entries;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        if (!entries.empty())
            entries += ", ";
        entries += *it;
    }
    if (!entries.empty())
        fields.push_back({"Entries", entries});
}

} // namespace

std::vector<CKorvatinFeatureHelp::Field>
CKorvatinFeatureHelp::Fields(const CKorvatinGenICamNodeT& node) {
    std::vector<Field> fields;
    if (!node.IsValid())
        return fields;
    void* arvNode = node.ArvNode();
    ArvGcFeatureNode* feature = ARV_GC_FEATURE_NODE(arvNode);
    const std::string name = textOf(arv_gc_feature_node_get_name(feature));
    fields.push_back({"Name", name});
    const std::string displayName = textOf(arv_gc_feature_node_get_display_name(feature));
    if (!displayName.empty() && displayName != name)
        fields.push_back({"Display name", displayName});
    QrnParamDataType type = QRN_PARAM_OTHER;
    try {
        type = node.DataType();
        fields.push_back({"Type", QrnParamDataTypeName(type)});
        const CKorvatinGenICamNodeT::EAccessMode access = node.AccessMode();
        static const char* const kAccessWords[] = {"NI", "NA", "WO", "RO", "RW"};
        if (int(access) >= 0 && int(access) <= 4)
            fields.push_back({"Access", kAccessWords[access]});
    } catch (const CKorvatinException& e) {
        fields.push_back({"Access", std::string("not available now (") + e.what() + ")"});
    }
    const std::string toolTip = textOf(arv_gc_feature_node_get_tooltip(feature));
    const std::string description = textOf(arv_gc_feature_node_get_description(feature));
    if (!toolTip.empty())
        fields.push_back({"Tool tip", toolTip});
    if (!description.empty() && description != toolTip)
        fields.push_back({"Description", description});

    // The range and the value reach the device; a detached description has neither.
    bool attached = true;
    try {
        node.Description()->RequireAttached(name.c_str());
    } catch (const CKorvatinException&) {
        attached = false;
    }
    if (isInteger(arvNode)) {
        if (attached)
            addIntegerRange(arvNode, fields);
        const std::string unit = textOf(arv_gc_integer_get_unit(ARV_GC_INTEGER(arvNode)));
        if (!unit.empty())
            fields.push_back({"Unit", unit});
        const ArvGcRepresentation representation =
            arv_gc_integer_get_representation(ARV_GC_INTEGER(arvNode));
        if (const char* word = representationWord(representation))
            fields.push_back({"Representation", word});
        if (attached && (representation == ARV_GC_REPRESENTATION_IPV4_ADDRESS ||
                         representation == ARV_GC_REPRESENTATION_MAC_ADDRESS)) {
            GErrorPtr error;
            const int64_t value = arv_gc_integer_get_value(ARV_GC_INTEGER(arvNode), Out(error));
            if (error)
                fields.push_back({"Address", failureText(error.get())});
            else
                fields.push_back({"Address", representation == ARV_GC_REPRESENTATION_IPV4_ADDRESS
                                                 ? Ipv4Text(value)
                                                 : MacText(value)});
        }
    } else if (ARV_IS_GC_FLOAT(arvNode)) {
        if (attached)
            addFloatRange(arvNode, fields);
        const std::string unit = textOf(arv_gc_float_get_unit(ARV_GC_FLOAT(arvNode)));
        if (!unit.empty())
            fields.push_back({"Unit", unit});
        if (const char* word =
                representationWord(arv_gc_float_get_representation(ARV_GC_FLOAT(arvNode))))
            fields.push_back({"Representation", word});
    } else if (ARV_IS_GC_ENUMERATION(arvNode)) {
        addEntries(arvNode, fields);
    }
    fields.push_back({"Visibility", VisibilityWord(Visibility(node))});
    return fields;
}

std::string CKorvatinFeatureHelp::Text(const std::vector<Field>& fields) {
    std::string text;
    for (const Field& field : fields) {
        if (!text.empty())
            text += '\n';
        text += field.label + ": " + field.text;
    }
    return text;
}

EKorvatinVisibility CKorvatinFeatureHelp::Visibility(const CKorvatinGenICamNodeT& node) {
    if (!node.IsValid())
        return EKorvatinVisibility::Beginner;
    switch (arv_gc_feature_node_get_visibility(ARV_GC_FEATURE_NODE(node.ArvNode()))) {
    case ARV_GC_VISIBILITY_INVISIBLE:
        return EKorvatinVisibility::Invisible;
    case ARV_GC_VISIBILITY_GURU:
        return EKorvatinVisibility::Guru;
    case ARV_GC_VISIBILITY_EXPERT:
        return EKorvatinVisibility::Expert;
    default:
        return EKorvatinVisibility::Beginner;
    }
}

const char* CKorvatinFeatureHelp::VisibilityWord(EKorvatinVisibility visibility) {
    switch (visibility) {
    case EKorvatinVisibility::Expert:
        return "Expert";
    case EKorvatinVisibility::Guru:
        return "Guru";
    case EKorvatinVisibility::Invisible:
        return "Invisible";
    default:
        return "Beginner";
    }
}

bool CKorvatinFeatureHelp::ParseVisibility(const std::string& word,
                                           EKorvatinVisibility* visibility) {
    std::string lower = word;
    for (char& c : lower)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    EKorvatinVisibility parsed;
    if (lower == "beginner")
        parsed = EKorvatinVisibility::Beginner;
    else if (lower == "expert")
        parsed = EKorvatinVisibility::Expert;
    else if (lower == "guru")
        parsed = EKorvatinVisibility::Guru;
    else
        return false;
    if (visibility)
        *visibility = parsed;
    return true;
}

std::string CKorvatinFeatureHelp::Ipv4Text(int64_t value) {
    const uint32_t address = uint32_t(uint64_t(value));
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", (address >> 24) & 0xFF, (address >> 16) & 0xFF,
                  (address >> 8) & 0xFF, address & 0xFF);
    return text;
}

std::string CKorvatinFeatureHelp::MacText(int64_t value) {
    const uint64_t mac = uint64_t(value);
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", unsigned(mac >> 40) & 0xFF,
                  unsigned(mac >> 32) & 0xFF, unsigned(mac >> 24) & 0xFF,
                  unsigned(mac >> 16) & 0xFF, unsigned(mac >> 8) & 0xFF, unsigned(mac) & 0xFF);
    return text;
}
