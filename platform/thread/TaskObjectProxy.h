#pragma once

#include <ace/Method_Request.h>

#include <cstdint>

#include "infra/MemAccount.h"
#include "quorvex/TaskObjectPool.h"
#include "thread/IDGenerator.h"
#include "thread/Task.h"

namespace Quorvex
{

/// What a method object's execution came to.
enum MOCallStatus : int
{
    eMO_DONE = 0,
    eMO_FAILED = 1
};

/// Stands on a foreign thread for an object of a task's thread. Takes an identifier for its life.
class TaskObjectProxyNoT
{
public:
    TaskObjectProxyNoT(IDGenerator& in_idGenerator, ACE_Activation_Queue& in_queue);
    TaskObjectProxyNoT(const TaskObjectProxyNoT&) = delete;
    TaskObjectProxyNoT& operator=(const TaskObjectProxyNoT&) = delete;

    std::uint32_t getObjectID() const { return m_uiObjectID; }
    IDGenerator& getIDGenerator() const { return m_idGenerator; }
    ACE_Activation_Queue& getQueue() const { return m_queue; }

    /// Gives the identifier back, on the calling thread: the last thing a proxy does, unless a queued method
    /// object does it in its place.
    void proxyDestruction();

protected:
    ~TaskObjectProxyNoT() = default;

private:
    IDGenerator& m_idGenerator;
    const std::uint32_t m_uiObjectID;
    ACE_Activation_Queue& m_queue;
};

/// A proxy for an object of class T, which stands in the container under the proxy's identifier.
template <class T>
class TaskObjectProxy : public TaskObjectProxyNoT
{
public:
    using Container = TaskObjectContainer<T>;
    using ObjectPtr = typename Container::ObjectPtr;

    /// Where the object is found, on its own thread.
    struct ProxyData
    {
        Container& m_container;
        std::uint32_t m_uiObjectID;

        ObjectPtr getObject() const { return m_container.getObject(m_uiObjectID); }
    };

    /// A method object that knows where its object is found.
    class ProxyData_MO : public ACE_Method_Request
    {
    public:
        explicit ProxyData_MO(const ProxyData& in_data) : m_data(in_data) {}

    protected:
        Container& getContainer() const { return m_data.m_container; }
        std::uint32_t getObjectID() const { return m_data.m_uiObjectID; }
        const ProxyData& getProxyData() const { return m_data; }

    private:
        ProxyData m_data;
    };

    /// One call on the object, made on its own thread; nothing happens when the object is gone by then.
    class MethodObject : public ProxyData_MO
    {
    public:
        using ProxyData_MO::ProxyData_MO;

        int call() final
        {
            const ObjectPtr pObject = this->getProxyData().getObject();
            return pObject.isNull() ? int{eMO_DONE} : call_i(pObject);
        }

    protected:
        /// An MOCallStatus.
        virtual int call_i(const ObjectPtr& in_pObject) = 0;
    };

    /// Drops the container's reference.
    class ReleaseObject_MO final : public ProxyData_MO
    {
    public:
        QUORVEX_MEM_ACCOUNT("ReleaseObject_MO");
        using ProxyData_MO::ProxyData_MO;

        int call() override
        {
            this->getContainer().releaseObject(this->getObjectID());
            return eMO_DONE;
        }
    };

    TaskObjectProxy(IDGenerator& in_idGenerator, ACE_Activation_Queue& in_queue, Container& in_container)
        : TaskObjectProxyNoT(in_idGenerator, in_queue), m_container(in_container)
    {
    }

    ProxyData getProxyData() const { return ProxyData{m_container, getObjectID()}; }

    /// Has the object released on its own thread, then gives the identifier back. The queue keeps the order:
    /// whoever gets the identifier next registers its object after this release.
    void proxyDestruction()
    {
        Task::enqueue(
            getQueue(), new ReleaseObject_MO(getProxyData()), "TaskObjectProxy<T>::proxyDestruction");
        TaskObjectProxyNoT::proxyDestruction();
    }

protected:
    ~TaskObjectProxy() = default;

private:
    Container& m_container;
};

}  // namespace Quorvex
