// Which nodes of a GenICam description depend on which, read once from the description's DOM.
#pragma once

#include <arv.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace korvatin {

// Built once per description from the links between its nodes (pValue, pMin, pMax, pInc,
// pIsAvailable, pIsImplemented, pIsLocked, pIndex, pSelected, pInvalidator, pVariable, ...)
// and from registers that share an address. Answers two questions: which nodes may show a
// different value, range or access after a write to one node, and whether a node's value may
// be cached.
class NodeDependencyMap {
public:
    explicit NodeDependencyMap(ArvGc* genicam);

    // Names of the nodes whose value, range or access may change when `written` is written,
    // `written` included. Computed on first use per node and remembered.
    std::vector<std::string> Affected(const std::string& written);

    // False when the node, or any node its value is read through, is NoCache or polled.
    bool IsCachable(const std::string& name) const;

    bool Contains(const std::string& name) const { return index_.count(name) != 0; }

private:
    enum class Link {
        Value, // the node's value is stored through the target (pValue, pValueCopy, ...)
        Read,  // the value is computed from the target (pVariable, pIndex, pAddress, ...)
        Limit, // range (pMin, pMax, pInc) or availability (pIsAvailable, pIsLocked, ...)
    };
    struct Edge {
        int target;
        Link link;
    };
    struct RegisterSpan {
        std::string port;
        uint64_t address;
        uint64_t length;
    };
    struct Node {
        std::string name;
        std::vector<Edge> uses;     // what this node depends on
        std::vector<int> usedBy;    // who depends on this node
        bool volatileValue = false; // NoCache or PollingTime
        bool hasSpan = false;
        RegisterSpan span;
    };

    struct Properties {
        std::string port;
        std::string address;
        std::string length;
    };

    int IndexOf(const std::string& name);
    void Walk(ArvDomNode* element);
    void ReadProperties(ArvDomNode* element, int self, bool ofEntry, Properties* properties);
    void Finish(int self, const Properties& properties);
    void AddLink(int from, int to, Link link);

    std::vector<Node> nodes_;
    std::map<std::string, int> index_;
    std::mutex cacheMutex_; // guards affected_
    std::map<int, std::vector<std::string>> affected_;
};

} // namespace korvatin
