// Which nodes of a GenICam description depend on which, read once from the description's DOM.
#include "nodedependencymap.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <deque>

namespace korvatin {

namespace {

std::string trimmed(const char* text) {
    if (text == nullptr)
        return std::string();
    std::string value(text);
    const auto first = value.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return std::string();
    const auto last = value.find_last_not_of(" \t\r\n");
    return value.substr(first, last - first + 1);
}

// The text content of an element such as <pValue>Width</pValue>.
std::string textOf(ArvDomNode* element) {
    std::string text;
    for (ArvDomNode* child = arv_dom_node_get_first_child(element); child != nullptr;
         child = arv_dom_node_get_next_sibling(child)) {
        if (ARV_IS_DOM_TEXT(child))
            text += arv_dom_character_data_get_data(ARV_DOM_CHARACTER_DATA(child));
    }
    return trimmed(text.c_str());
}

bool parseInteger(const std::string& text, uint64_t* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    *value = std::strtoull(text.c_str(), &end, 0);
    return end != nullptr && *end == '\0';
}

bool isLinkTag(const std::string& tag) {
    return tag.size() > 1 && tag[0] == 'p' && std::isupper(static_cast<unsigned char>(tag[1]));
}

} // namespace

NodeDependencyMap::NodeDependencyMap(ArvGc* genicam) {
    ArvDomElement* root = arv_dom_document_get_document_element(ARV_DOM_DOCUMENT(genicam));
    if (root == nullptr)
        return;
    for (ArvDomNode* child = arv_dom_node_get_first_child(ARV_DOM_NODE(root)); child != nullptr;
         child = arv_dom_node_get_next_sibling(child))
        Walk(child);
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        for (const Edge& edge : nodes_[i].uses)
            nodes_[edge.target].usedBy.push_back(static_cast<int>(i));
}

int NodeDependencyMap::IndexOf(const std::string& name) {
    const auto found = index_.find(name);
    if (found != index_.end())
        return found->second;
    const int index = static_cast<int>(nodes_.size());
    nodes_.push_back(Node{});
    nodes_.back().name = name;
    index_.emplace(name, index);
    return index;
}

void NodeDependencyMap::AddLink(int from, int to, Link link) {
    if (from == to)
        return;
    nodes_[from].uses.push_back(Edge{to, link});
}

// Visits one element of the description. Named elements are nodes; their child elements are
// properties (links to other nodes, literal values) or, for enumerations, entries. Unnamed
// elements are containers: a Group holds nodes of its own, a StructReg lends its register
// (address, length, port) to each of its StructEntry members.
void NodeDependencyMap::Walk(ArvDomNode* element) {
    if (!ARV_IS_DOM_ELEMENT(element))
        return;
    const std::string name =
        trimmed(arv_dom_element_get_attribute(ARV_DOM_ELEMENT(element), "Name"));
    const std::string tag = arv_dom_node_get_node_name(element);
    if (name.empty()) {
        for (ArvDomNode* child = arv_dom_node_get_first_child(element); child != nullptr;
             child = arv_dom_node_get_next_sibling(child)) {
            if (!ARV_IS_DOM_ELEMENT(child))
                continue;
            const std::string childName =
                trimmed(arv_dom_element_get_attribute(ARV_DOM_ELEMENT(child), "Name"));
            if (childName.empty())
                continue;
            if (tag == "StructReg" &&
                std::string(arv_dom_node_get_node_name(child)) == "StructEntry") {
                const int self = IndexOf(childName);
                Properties properties;
                ReadProperties(element, self, false, &properties);
                ReadProperties(child, self, false, &properties);
                Finish(self, properties);
            } else if (tag != "StructReg") {
                Walk(child);
            }
        }
        return;
    }
    const int self = IndexOf(name);
    Properties properties;
    ReadProperties(element, self, false, &properties);
    Finish(self, properties);
}

// Reads the property children of `element` into node `self`. Enumeration entries are not nodes
// of their own here (their names may repeat other nodes' names): what an entry links to counts
// as a limit of the enumeration, since it decides which entries are offered.
void NodeDependencyMap::ReadProperties(ArvDomNode* element, int self, bool ofEntry,
                                       Properties* properties) {
    for (ArvDomNode* child = arv_dom_node_get_first_child(element); child != nullptr;
         child = arv_dom_node_get_next_sibling(child)) {
        if (!ARV_IS_DOM_ELEMENT(child))
            continue;
        const std::string property = arv_dom_node_get_node_name(child);
        if (property == "EnumEntry") {
            Properties ignored;
            ReadProperties(child, self, true, &ignored);
            continue;
        }
        if (property == "StructEntry")
            continue;
        const std::string text = textOf(child);
        if (property == "Cachable") {
            if (text == "NoCache" && !ofEntry)
                nodes_[self].volatileValue = true;
        } else if (property == "PollingTime") {
            if (!ofEntry)
                nodes_[self].volatileValue = true;
        } else if (property == "Address") {
            properties->address = text;
        } else if (property == "Length") {
            properties->length = text;
        } else if (property == "pPort") {
            properties->port = text;
        } else if (isLinkTag(property) && !text.empty()) {
            if (property == "pFeature" || property == "pError" || property == "pAlias" ||
                property == "pCastAlias")
                continue; // membership and cross references, not data flow
            const int target = IndexOf(text);
            if (ofEntry) {
                AddLink(self, target, Link::Limit);
            } else if (property == "pSelected") {
                // A selector changes what the selected feature shows.
                AddLink(target, self, Link::Read);
            } else if (property == "pValue" || property == "pValueCopy" ||
                       property == "pValueIndexed" || property == "pValueDefault") {
                AddLink(self, target, Link::Value);
            } else if (property == "pMin" || property == "pMax" || property == "pInc" ||
                       property == "pIsAvailable" || property == "pIsImplemented" ||
                       property == "pIsLocked" || property == "pInvalidator") {
                AddLink(self, target, Link::Limit);
            } else {
                // pVariable, pIndex, pAddress, pLength, pCommandValue and the like: the value
                // is computed from the target.
                AddLink(self, target, Link::Read);
            }
        }
    }
}

void NodeDependencyMap::Finish(int self, const Properties& properties) {
    uint64_t address = 0;
    uint64_t length = 0;
    if (parseInteger(properties.address, &address) && parseInteger(properties.length, &length) &&
        length > 0) {
        nodes_[self].hasSpan = true;
        nodes_[self].span = RegisterSpan{properties.port, address, length};
    }
}

std::vector<std::string> NodeDependencyMap::Affected(const std::string& written) {
    const auto found = index_.find(written);
    if (found == index_.end())
        return {written};
    const int start = found->second;
    {
        std::lock_guard<std::mutex> lock(cacheMutex_);
        const auto cached = affected_.find(start);
        if (cached != affected_.end())
            return cached->second;
    }

    // What the write stores into: the node, the nodes its value is stored through, and
    // every register that overlaps one of those.
    std::vector<bool> stored(nodes_.size(), false);
    std::deque<int> queue{start};
    stored[start] = true;
    while (!queue.empty()) {
        const int current = queue.front();
        queue.pop_front();
        for (const Edge& edge : nodes_[current].uses) {
            if (edge.link == Link::Value && !stored[edge.target]) {
                stored[edge.target] = true;
                queue.push_back(edge.target);
            }
        }
    }
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
        if (!stored[i] || !nodes_[i].hasSpan)
            continue;
        const RegisterSpan& a = nodes_[i].span;
        for (std::size_t j = 0; j < nodes_.size(); ++j) {
            if (stored[j] || !nodes_[j].hasSpan)
                continue;
            const RegisterSpan& b = nodes_[j].span;
            if (a.port == b.port && a.address < b.address + b.length &&
                b.address < a.address + a.length)
                stored[j] = true;
        }
    }

    // Everything that depends, directly or through other nodes, on what was stored.
    std::vector<bool> affected = stored;
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        if (stored[i])
            queue.push_back(static_cast<int>(i));
    while (!queue.empty()) {
        const int current = queue.front();
        queue.pop_front();
        for (int user : nodes_[current].usedBy) {
            if (!affected[user]) {
                affected[user] = true;
                queue.push_back(user);
            }
        }
    }

    std::vector<std::string> names;
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        if (affected[i])
            names.push_back(nodes_[i].name);
    std::lock_guard<std::mutex> lock(cacheMutex_);
    affected_.emplace(start, names);
    return names;
}

bool NodeDependencyMap::IsCachable(const std::string& name) const {
    const auto found = index_.find(name);
    if (found == index_.end())
        return true;
    std::vector<bool> seen(nodes_.size(), false);
    std::deque<int> queue{found->second};
    seen[found->second] = true;
    while (!queue.empty()) {
        const int current = queue.front();
        queue.pop_front();
        if (nodes_[current].volatileValue)
            return false;
        for (const Edge& edge : nodes_[current].uses) {
            if (edge.link == Link::Limit || seen[edge.target])
                continue;
            seen[edge.target] = true;
            queue.push_back(edge.target);
        }
    }
    return true;
}

} // namespace korvatin
