// One parsed GenICam description bound to a device, with its node-change callbacks.
#include "genicamdescription.h"

#include "korvatin/korvatinexception.h"
#include "korvatin/korvatingenicamnodecallback.h"

#include <libxml/parser.h>

#include <algorithm>
#include <thread>

namespace korvatin {

namespace {

GObjectRef<ArvGc> parse(ArvDevice* device, const std::string& xml, const std::string& origin) {
    if (xml.empty())
        throw CKorvatinException("The GenICam description from " + origin + " is empty",
                                 QRN_ERR_INVALID);
    // Aravis' parser hands the size to libxml2 as an int.
    if (xml.size() > 0x7FFFFFFFu)
        throw CKorvatinException("The GenICam description from " + origin + " is too large",
                                 QRN_ERR_INVALID);
    // Aravis' parser takes a document that ends half-way for a complete one, so libxml2 checks
    // that it is well-formed first, and says where it is not.
    xmlParserCtxtPtr context = xmlNewParserCtxt();
    if (context == nullptr)
        throw CKorvatinException("Cannot start the XML parser", QRN_ERR_NO_MEMORY);
    xmlDocPtr document = xmlCtxtReadMemory(
        context, xml.data(), static_cast<int>(xml.size()), "description.xml", nullptr,
        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_HUGE);
    std::string problem;
    if (document == nullptr) {
        const xmlError* error = xmlCtxtGetLastError(context);
        problem = " (";
        if (error != nullptr && error->line > 0)
            problem += "line " + std::to_string(error->line) + ": ";
        std::string message =
            error != nullptr && error->message != nullptr ? error->message : "not well-formed";
        while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
            message.pop_back();
        problem += message + ")";
    }
    xmlFreeDoc(document);
    xmlFreeParserCtxt(context);
    if (!problem.empty())
        throw CKorvatinException("The GenICam description from " + origin +
                                     " is not a valid GenICam XML document" + problem,
                                 QRN_ERR_INVALID);

    ArvGc* genicam = arv_gc_new(device, xml.data(), xml.size());
    if (genicam == nullptr)
        throw CKorvatinException("The GenICam description from " + origin +
                                     " is not a valid GenICam XML document",
                                 QRN_ERR_INVALID);
    return GObjectRef<ArvGc>::Adopt(genicam);
}

// The thread notifications are delivered on when a write is made elsewhere, and how.
struct HomeThread {
    std::mutex mutex;
    std::thread::id thread;
    CKorvatinGenICamNodeCallback::Post post;
    bool deferHomeWrites = false; // the home thread's own writes are posted too
};

HomeThread& homeThread() {
    static HomeThread home;
    return home;
}

// How to reach the home thread from this one: empty when there is no home thread or this is it
// and its writes are not deferred.
CKorvatinGenICamNodeCallback::Post PostFromThisThread() {
    HomeThread& home = homeThread();
    std::lock_guard<std::mutex> lock(home.mutex);
    if (!home.post || (home.thread == std::this_thread::get_id() && !home.deferHomeWrites))
        return {};
    return home.post;
}

} // namespace

GenicamDescription::GenicamDescription(ArvDevice* device, const std::string& xml,
                                       const std::string& origin)
    : origin_(origin), device_(GObjectRef<ArvDevice>::Share(device)),
      genicam_(parse(device, xml, origin)), dependencies_(genicam_.Get()) {}

GenicamDescription::~GenicamDescription() = default;

ArvGcFeatureNode* GenicamDescription::FindFeature(const char* name) const {
    if (name == nullptr || name[0] == '\0')
        return nullptr;
    ArvGcNode* node = arv_gc_get_node(genicam_.Get(), name);
    return ARV_IS_GC_FEATURE_NODE(node) ? ARV_GC_FEATURE_NODE(node) : nullptr;
}

ArvGcFeatureNode* GenicamDescription::RequireFeature(const char* name) const {
    ArvGcFeatureNode* node = FindFeature(name);
    if (node == nullptr)
        throw CKorvatinException(std::string(name != nullptr ? name : "(null)") +
                                     ": no such feature",
                                 QRN_ERR_NOT_FOUND);
    return node;
}

void GenicamDescription::Detach() {
    attached_.store(false);
}

void GenicamDescription::RequireAttached(const char* feature) const {
    if (!attached_.load())
        throw CKorvatinException(std::string(feature) + ": the camera is not connected",
                                 QRN_ERR_NOT_CONNECTED);
}

void GenicamDescription::RegisterCallback(ArvGcFeatureNode* node,
                                          CKorvatinGenICamNodeCallback* callback) {
    std::lock_guard<std::mutex> lock(callbacksMutex_);
    const auto entry = std::make_pair(node, callback);
    if (std::find(callbacks_.begin(), callbacks_.end(), entry) == callbacks_.end())
        callbacks_.push_back(entry);
}

void GenicamDescription::DeregisterCallback(ArvGcFeatureNode* node,
                                            CKorvatinGenICamNodeCallback* callback) {
    std::lock_guard<std::mutex> lock(callbacksMutex_);
    callbacks_.erase(
        std::remove(callbacks_.begin(), callbacks_.end(), std::make_pair(node, callback)),
        callbacks_.end());
}

bool GenicamDescription::IsRegistered(ArvGcFeatureNode* node,
                                      CKorvatinGenICamNodeCallback* callback) {
    std::lock_guard<std::mutex> lock(callbacksMutex_);
    return std::find(callbacks_.begin(), callbacks_.end(), std::make_pair(node, callback)) !=
           callbacks_.end();
}

void GenicamDescription::NotifyWritten(ArvGcFeatureNode* written) {
    std::vector<Entry> due;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex_);
        if (callbacks_.empty())
            return;
        due = callbacks_;
    }
    const std::vector<std::string> affected =
        dependencies_.Affected(arv_gc_feature_node_get_name(written));
    // The written node first, then its dependents, in the order they registered.
    std::stable_partition(due.begin(), due.end(),
                          [written](const auto& entry) { return entry.first == written; });
    due.erase(std::remove_if(due.begin(), due.end(),
                             [&](const Entry& entry) {
                                 const char* name = arv_gc_feature_node_get_name(entry.first);
                                 return entry.first != written &&
                                        std::find(affected.begin(), affected.end(), name) ==
                                            affected.end();
                             }),
              due.end());
    if (due.empty())
        return;

    const CKorvatinGenICamNodeCallback::Post post = PostFromThisThread();
    if (!post) {
        for (const auto& [node, callback] : due) {
            // A callback may deregister others (or itself) while it runs; call only those still
            // registered, and without holding the lock, so that they may use the SDK freely.
            if (IsRegistered(node, callback))
                callback->NodeChanged();
        }
        return;
    }
    bool deliveryPosted = false;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex_);
        deliveryPosted = !queued_.empty();
        for (const Entry& entry : due) {
            if (std::find(queued_.begin(), queued_.end(), entry) == queued_.end())
                queued_.push_back(entry);
        }
    }
    if (!deliveryPosted) {
        // The description may be gone by the time the home thread gets to it.
        post([weak = weak_from_this()] {
            if (const std::shared_ptr<GenicamDescription> self = weak.lock())
                self->DeliverQueued();
        });
    }
}

void GenicamDescription::DeliverQueued() {
    std::vector<Entry> due;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex_);
        due.swap(queued_);
    }
    for (const auto& [node, callback] : due) {
        if (IsRegistered(node, callback))
            callback->NodeChanged();
    }
}

} // namespace korvatin

void CKorvatinGenICamNodeCallback::SetHomeThread(Post post) {
    korvatin::HomeThread& home = korvatin::homeThread();
    std::lock_guard<std::mutex> lock(home.mutex);
    home.thread = post ? std::this_thread::get_id() : std::thread::id();
    home.post = std::move(post);
    if (!home.post)
        home.deferHomeWrites = false;
}

void CKorvatinGenICamNodeCallback::DeferHomeThreadWrites(bool defer) {
    korvatin::HomeThread& home = korvatin::homeThread();
    std::lock_guard<std::mutex> lock(home.mutex);
    home.deferHomeWrites = defer && home.post;
}
