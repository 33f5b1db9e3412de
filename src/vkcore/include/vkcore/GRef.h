#pragma once

#include <vkcore/Export.h>

#include <QtCore/QAtomicInt>

#include <utility>

namespace tarn::vkcore {

// Base of reference-counted objects. A new object has the count 0; the release that brings the count back to
// 0 deletes the object.
class VKCORE_EXPORT CountedObject
{
public:
    CountedObject() = default;
    CountedObject(const CountedObject&) = delete;
    CountedObject& operator=(const CountedObject&) = delete;

    void addRef() const { mRefCount.ref(); }
    void release() const
    {
        if (!mRefCount.deref()) {
            delete this;
        }
    }

protected:
    virtual ~CountedObject();

private:
    mutable QAtomicInt mRefCount{0};
};

// A handle on a reference-counted object: holds one reference until it is destroyed. T needs addRef() and
// release().
template <typename T>
class GRef
{
public:
    GRef() = default;
    GRef(T* pObject) : mObject(pObject)
    {
        if (mObject != nullptr) {
            mObject->addRef();
        }
    }
    GRef(const GRef& pOther) : GRef(pOther.mObject) {}
    GRef(GRef&& pOther) noexcept : mObject(std::exchange(pOther.mObject, nullptr)) {}
    ~GRef()
    {
        if (mObject != nullptr) {
            mObject->release();
        }
    }
    GRef& operator=(GRef pOther) noexcept
    {
        std::swap(mObject, pOther.mObject);
        return *this;
    }

    T* get() const { return mObject; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }
    explicit operator bool() const { return mObject != nullptr; }

private:
    T* mObject = nullptr;
};

// The same handle in the form that is stored in a QList.
template <typename T>
class GRef2 : public GRef<T>
{
public:
    using GRef<T>::GRef;
};

} // namespace tarn::vkcore
