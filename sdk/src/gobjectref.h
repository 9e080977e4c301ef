// RAII owners for the GLib/Aravis handles the SDK keeps: GObject references and GErrors.
#pragma once

#include <glib-object.h>

#include <memory>
#include <utility>

namespace korvatin {

// Owns one reference to a GObject. Copies take another reference, destruction drops it.
template <typename T> class GObjectRef {
public:
    GObjectRef() = default;
    // Takes over a reference the caller already holds (a *_new() result).
    static GObjectRef Adopt(T* object) {
        GObjectRef ref;
        ref.object_ = object;
        return ref;
    }
    // Adds a reference of its own to a borrowed object.
    static GObjectRef Share(T* object) {
        GObjectRef ref;
        ref.object_ = object != nullptr ? static_cast<T*>(g_object_ref(object)) : nullptr;
        return ref;
    }
    GObjectRef(const GObjectRef& other) : object_(other.object_) {
        if (object_ != nullptr)
            g_object_ref(object_);
    }
    GObjectRef(GObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    GObjectRef& operator=(GObjectRef other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~GObjectRef() { Reset(); }

    void Reset() {
        if (object_ != nullptr)
            g_object_unref(std::exchange(object_, nullptr));
    }
    T* Get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    T* object_ = nullptr;
};

struct GErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};
// Owns a GError filled by an Aravis call: `GErrorPtr error; f(..., Out(error));`.
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

// Hands a GError** to a C call and stores what it set into the owning pointer afterwards.
class GErrorOut {
public:
    explicit GErrorOut(GErrorPtr& owner) : owner_(owner) {}
    ~GErrorOut() {
        if (error_ != nullptr)
            owner_.reset(error_);
    }
    GErrorOut(const GErrorOut&) = delete;
    GErrorOut& operator=(const GErrorOut&) = delete;
    operator GError**() { return &error_; }

private:
    GErrorPtr& owner_;
    GError* error_ = nullptr;
};

inline GErrorOut Out(GErrorPtr& owner) {
    return GErrorOut(owner);
}

} // namespace korvatin
