// A camera opened with Aravis itself: the reference the project's own code is checked against.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

// Opens a GigE Vision device by address with libaravis (never by Aravis' own discovery), reads
// what a test needs to compare with, and releases the device when destroyed.
class AravisReference {
public:
    struct Feature {
        QString name;
        int depth = 0;          // 0 for Root, 1 for its features, ...
        QString element;        // the description's element: "Integer", "StringReg", ...
        QString access;         // "NI", "NA", "WO", "RO" or "RW", as Aravis answers
        bool integer = false;   // an integer node (Integer, IntReg, IntSwissKnife, ...)
        bool signedInt = false; // an integer node whose minimum is negative or undefined
        bool readable = false;  // Aravis could read its value
        QString value;          // integers in decimal, booleans true/false, enumeration entry
        double floatValue = 0;  // the value of a float node
        QString unit;           // the unit of a float node
    };

    AravisReference();
    ~AravisReference();
    AravisReference(const AravisReference&) = delete;
    AravisReference& operator=(const AravisReference&) = delete;

    bool open(const QString& deviceAddress, QString* error);
    // Releases the device, so that another client can take control of it.
    void close();

    // The GenICam description the device serves.
    QByteArray genicamXml() const;
    // Every feature reachable from Root through the categories, depth first, in order.
    QList<Feature> featuresFromRoot() const;
    // The value of an integer feature, or `fallback` when it cannot be read.
    qint64 integerValue(const char* name, qint64 fallback = -1) const;

private:
    struct Device;
    std::unique_ptr<Device> device_;
};
