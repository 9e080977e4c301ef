// One parsed GenICam description bound to a device, with its node-change callbacks.
#pragma once

#include "gobjectref.h"
#include "korvatin/korvatingenicamnodecallback.h"
#include "nodedependencymap.h"

#include <arv.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace korvatin {

// Node handles share the description, so it outlives the connection that made it. When the
// connection closes it is detached: from then on every access that would reach the device
// fails with "not connected" instead of touching a released device.
class GenicamDescription : public std::enable_shared_from_this<GenicamDescription> {
public:
    // Parses `xml` (`origin` names where it came from, for messages) into an ArvGc whose
    // register accesses go to `device`. Throws CKorvatinException on a broken description.
    GenicamDescription(ArvDevice* device, const std::string& xml, const std::string& origin);
    ~GenicamDescription();
    GenicamDescription(const GenicamDescription&) = delete;
    GenicamDescription& operator=(const GenicamDescription&) = delete;

    ArvGc* Genicam() const { return genicam_.Get(); }
    const std::string& Origin() const { return origin_; }

    // The feature node called `name`, or null.
    ArvGcFeatureNode* FindFeature(const char* name) const;
    // The same, or an exception "<name>: no such feature".
    ArvGcFeatureNode* RequireFeature(const char* name) const;

    // Called by the connection when it closes; afterwards RequireAttached throws.
    void Detach();
    bool IsAttached() const { return attached_.load(); }
    void RequireAttached(const char* feature) const;

    NodeDependencyMap& Dependencies() { return dependencies_; }

    void RegisterCallback(ArvGcFeatureNode* node, CKorvatinGenICamNodeCallback* callback);
    void DeregisterCallback(ArvGcFeatureNode* node, CKorvatinGenICamNodeCallback* callback);
    // After a completed write to `written`: NodeChanged() of every callback registered for it
    // or for a node that depends on it. Runs the callbacks on the calling (writing) thread, or,
    // when a home thread is set and this is another one, queues them for the home thread.
    void NotifyWritten(ArvGcFeatureNode* written);

private:
    using Entry = std::pair<ArvGcFeatureNode*, CKorvatinGenICamNodeCallback*>;

    bool IsRegistered(ArvGcFeatureNode* node, CKorvatinGenICamNodeCallback* callback);
    // On the home thread: calls the queued callbacks that are still registered.
    void DeliverQueued();

    std::string origin_;
    GObjectRef<ArvDevice> device_;
    GObjectRef<ArvGc> genicam_;
    std::atomic<bool> attached_{true};
    NodeDependencyMap dependencies_;
    std::mutex callbacksMutex_; // guards callbacks_ and queued_
    std::vector<Entry> callbacks_;
    // Due on the home thread, each once, oldest first; a delivery is posted while not empty.
    std::vector<Entry> queued_;
};

} // namespace korvatin
