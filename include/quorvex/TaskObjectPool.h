#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "infra/Assertion.h"
#include "infra/CountedObjPtr.h"
#include "infra/Logger.h"
#include "infra/TraceScope.h"
#include "thread/IDGenerator.h"

namespace Quorvex
{

/// A proxy on another thread names its object by an identifier in a container; the container is touched only
/// on the object's own thread.
class TaskObjectContainerNoT
{
public:
    TaskObjectContainerNoT() = default;
    TaskObjectContainerNoT(const TaskObjectContainerNoT&) = delete;
    TaskObjectContainerNoT& operator=(const TaskObjectContainerNoT&) = delete;
    virtual ~TaskObjectContainerNoT() = default;

    /// Drops the container's reference for that identifier; nothing when there is none.
    virtual void releaseObject(std::uint32_t in_objectID) = 0;
};

template <class T>
class TaskObjectContainer : public virtual TaskObjectContainerNoT
{
public:
    using ObjectPtr = CountedObjPtr<T, ReferenceCount>;

    /// Null when nothing stands under the identifier.
    virtual ObjectPtr getObject(std::uint32_t in_objectID) const = 0;
    /// Puts the object under the identifier, in place of what stood there.
    virtual void addObject(std::uint32_t in_objectID, const ObjectPtr& in_pObj) = 0;
};

/// A container that only refers to its objects.
template <class T>
class TaskObjectVector final : public TaskObjectContainer<T>
{
public:
    using typename TaskObjectContainer<T>::ObjectPtr;

    ObjectPtr getObject(std::uint32_t in_objectID) const override
    {
        return in_objectID < m_objVector.size() ? m_objVector[in_objectID] : ObjectPtr();
    }

    void addObject(std::uint32_t in_objectID, const ObjectPtr& in_pObj) override
    {
        if (in_objectID < m_objVector.size())
        {
            m_objVector[in_objectID].reset();
        }
        else
        {
            m_objVector.resize(std::size_t{in_objectID} + 1);
        }
        m_objVector[in_objectID] = in_pObj;
    }

    void releaseObject(std::uint32_t in_objectID) override
    {
        if (in_objectID < m_objVector.size())
        {
            m_objVector[in_objectID].reset();
        }
    }

private:
    std::vector<ObjectPtr> m_objVector;
};

/// What all pools share.
class TaskObjectPoolNoT
{
public:
    static const Logger& getLogger();
};

/// Recycles objects instead of deleting them. The pool has a container of its own (ProxyData) for each kind
/// of proxy through which its objects are reached; an object goes back when the last reference outside the
/// pool is given up. `Base` is what the containers speak of, `T` what the pool creates (by its default
/// constructor). There is no upper bound. One thread, except that a ProxyData's identifiers belong to the
/// thread that makes the proxies.
template <class T, class Base = T>
class TaskObjectPool : public TaskObjectPoolNoT
{
public:
    using ObjectPtr = CountedObjPtr<Base, ReferenceCount>;

    /// The objects reached by one kind of proxy, and the identifiers of those proxies.
    class ProxyData final : public TaskObjectContainer<Base>, public StackIDGenerator
    {
    public:
        ProxyData(TaskObjectPool& in_pool, std::size_t in_index) : m_pool(in_pool), m_index(in_index) {}
        ProxyData(const ProxyData&) = delete;
        ProxyData& operator=(const ProxyData&) = delete;
        ~ProxyData() override
        {
            QLOG_TRACE(getLogger(), "destroying proxy " << m_index);
            releaseAllObjects();
            QLOG_TRACE(getLogger(), "m_objVector cleared for proxy " << m_index);
        }

        ObjectPtr getObject(std::uint32_t in_objectID) const override
        {
            return in_objectID < m_objVector.size() ? m_objVector[in_objectID] : ObjectPtr();
        }

        void addObject(std::uint32_t in_objectID, const ObjectPtr& in_pObj) override
        {
            QUORVEX_ASSERT(getLogger(), !in_pObj.isNull());
            if (in_objectID < m_objVector.size())
            {
                m_pool.giveBack(m_objVector[in_objectID]);
            }
            else
            {
                m_objVector.resize(std::size_t{in_objectID} + 1);
            }
            m_objVector[in_objectID] = in_pObj;
        }

        void releaseObject(std::uint32_t in_objectID) override
        {
            if (in_objectID >= m_objVector.size())
            {
                return;
            }
            m_pool.giveBack(m_objVector[in_objectID]);
            QUORVEX_ASSERT(getLogger(), m_objVector[in_objectID].isNull());
        }

        void releaseAllObjects()
        {
            TRACE_SCOPE(getLogger(), "ProxyData::releaseAllObjects");
            m_objVector.clear();
        }

    private:
        TaskObjectPool& m_pool;
        std::size_t m_index;
        std::vector<ObjectPtr> m_objVector;
    };

    explicit TaskObjectPool(std::size_t in_numProxyKinds)
    {
        TRACE_SCOPE(getLogger(), "TaskObjectPool<T>::TaskObjectPool");
        m_vProxyData.reserve(in_numProxyKinds);
        for (std::size_t i = 0; i < in_numProxyKinds; ++i)
        {
            m_vProxyData.push_back(std::make_unique<ProxyData>(*this, i));
        }
    }
    TaskObjectPool(const TaskObjectPool&) = delete;
    TaskObjectPool& operator=(const TaskObjectPool&) = delete;
    ~TaskObjectPool()
    {
        TRACE_SCOPE(getLogger(), "TaskObjectPool<T>::~TaskObjectPool");
        clear();
    }

    /// A free object with whatever state its last user left in it, or a new one.
    ObjectPtr acquire()
    {
        if (m_unusedObjStack.empty())
        {
            return ObjectPtr(new T);
        }
        ObjectPtr pObj = std::move(m_unusedObjStack.back());
        m_unusedObjStack.pop_back();
        return pObj;
    }

    /// Gives the reference up: true when it was the last one and the object is free now.
    bool giveBack(ObjectPtr& io_pEntry)
    {
        if (io_pEntry.isNull() || !io_pEntry.unique())
        {
            io_pEntry.reset();
            return false;
        }
        m_unusedObjStack.push_back(io_pEntry);
        io_pEntry.reset();
        QUORVEX_ASSERT_TEXT(getLogger(), m_unusedObjStack.back().unique(), "m_unusedObjStack.top().unique()");
        return true;
    }

    /// The container and identifier generator of the kind of proxy with that index, which must exist.
    ProxyData& getProxyData(std::size_t in_index) { return *m_vProxyData.at(in_index); }

    std::size_t getNumUnused() const { return m_unusedObjStack.size(); }

    /// Drops the free objects and all that the containers hold.
    void clear()
    {
        TRACE_SCOPE(getLogger(), "TaskObjectPool<T>::clear");
        while (!m_unusedObjStack.empty())
        {
            m_unusedObjStack.pop_back();
        }
        for (const auto& pProxyData : m_vProxyData)
        {
            pProxyData->releaseAllObjects();
        }
    }

private:
    std::vector<ObjectPtr> m_unusedObjStack;
    std::vector<std::unique_ptr<ProxyData>> m_vProxyData;
};

}  // namespace Quorvex
