// What a feature says about itself: name, description, range, unit, visibility and address
// forms, as the feature tree's tool tips and viewlane-cli describe show it.
#pragma once

#include "korvatingenicamnodet.h"

#include <string>
#include <vector>

// The GenICam visibility levels, ordered so that a level shows every feature at or below it.
enum class EKorvatinVisibility : int { Beginner = 0, Expert = 1, Guru = 2, Invisible = 3 };

class CKorvatinFeatureHelp {
public:
    // One line of help: a label ("Name", "Description", "Range", ...) and its text.
    struct Field {
        std::string label;
        std::string text;
    };

    // Every field the node has, in a fixed order: Name, Display name, Type, Access, Tool tip,
    // Description, Range, Increment, Unit, Representation, Address, Entries, Visibility. A
    // field the node does not define is left out; one that cannot be read now (a range behind
    // an unavailable register) says why. Never throws for a valid handle.
    static std::vector<Field> Fields(const CKorvatinGenICamNodeT& node);
    // The fields as "Label: text" lines joined by '\n' (no line break after the last).
    static std::string Text(const std::vector<Field>& fields);

    // The node's visibility; a description that gives none means Beginner.
    static EKorvatinVisibility Visibility(const CKorvatinGenICamNodeT& node);
    // "Beginner", "Expert", "Guru" or "Invisible".
    static const char* VisibilityWord(EKorvatinVisibility visibility);
    // Parses beginner, expert or guru (any case); false for another word.
    static bool ParseVisibility(const std::string& word, EKorvatinVisibility* visibility);
    // True when a feature of `feature` visibility is shown at user level `level`.
    static bool ShownAt(EKorvatinVisibility feature, EKorvatinVisibility level) {
        return int(feature) <= int(level);
    }

    // An IPv4 address in its dotted form, from the low 32 bits of `value` (most significant
    // byte first): 2130706433 is "127.0.0.1".
    static std::string Ipv4Text(int64_t value);
    // A MAC address in colon form with lower-case hex, from the low 48 bits of `value`.
    static std::string MacText(int64_t value);
};
