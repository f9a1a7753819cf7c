#pragma once

#include <cstdint>
#include <string>

#include "infra/DynLib.h"
#include "infra/DynLibObjPtr.h"
#include "infra/Handle.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"

namespace Quorvex
{

/// The part of a DynlibObjectFactory that does not depend on what it makes: it owns the opened library.
class DynlibObjectFactoryNoT
{
public:
    DynlibObjectFactoryNoT() = default;
    DynlibObjectFactoryNoT(const DynlibObjectFactoryNoT&) = delete;
    DynlibObjectFactoryNoT& operator=(const DynlibObjectFactoryNoT&) = delete;
    virtual ~DynlibObjectFactoryNoT() = default;

    /// Opens the library of that name (a path, or a name looked for as DynLib::open() says). False when it
    /// cannot be opened: why, getOpenError() tells.
    bool openDynlib(const std::string& in_strName)
    {
        m_hLibrary = DynLib::open(in_strName, m_strOpenError);
        return !m_hLibrary.isNull();
    }
    const std::string& getOpenError() const { return m_strOpenError; }

protected:
    const TSHandle<DynLib>& getLibrary() const { return m_hLibrary; }

private:
    TSHandle<DynLib> m_hLibrary;
    std::string m_strOpenError;
};

/// Makes objects of class T from a dynamic library. The library exports a creation function with the
/// undecorated name that create() is given: (address of a pointer to T, configuration) -> 0, with the new
/// object stored through the address, where null means that none could be made. The objects keep the library
/// loaded.
template <class T>
class DynlibObjectFactory : public DynlibObjectFactoryNoT, public ObjectWithLogger<Logger>
{
public:
    using CreationMethod = std::int32_t (*)(T**, const TSHandle<ROConfiguration>&);

    DynlibObjectFactory() : ObjectWithLogger<Logger>(Logger("quorvex.infra.DynlibObjectFactory")) {}

    using DynlibObjectFactoryNoT::openDynlib;

    /// Opens the library that a string parameter of the configuration names.
    virtual bool openDynlib(const TSHandle<ROConfiguration>& in_hConfig, const std::string& in_strParameter)
    {
        const ParameterValue* pValue = in_hConfig->getValue(in_strParameter);
        if (pValue == nullptr)
        {
            QLOG_ERROR(getLogger(), "unable to get parameter " << in_strParameter << " from config");
            return false;
        }
        std::string strName;
        if (!pValue->getString(strName))
        {
            QLOG_ERROR(getLogger(), "parameter " << in_strParameter << " is not a string");
            return false;
        }
        if (!openDynlib(strName))
        {
            QLOG_ERROR(getLogger(), "failed to open dynamic library " << strName);
            return false;
        }
        return true;
    }

    /// Makes an object; null, with the reason logged at ERROR, when that fails.
    virtual DynLibObjPtr<T> create(const std::string& in_strMethod,
                                   const TSHandle<ROConfiguration>& in_hConfig)
    {
        if (getLibrary().isNull())
        {
            QLOG_ERROR(getLogger(), "invoke openDynlib before DynlibObjectFactory");
            return {};
        }
        void* pSymbol = getLibrary()->symbol(in_strMethod);
        if (pSymbol == nullptr)
        {
            QLOG_ERROR(getLogger(), "Creation method \"" << in_strMethod << "\" not found");
            return {};
        }
        T* pObject = nullptr;
        if (reinterpret_cast<CreationMethod>(pSymbol)(&pObject, in_hConfig) != 0 || pObject == nullptr)
        {
            QLOG_ERROR(getLogger(), "Error calling creation method \"" << in_strMethod << "\"");
            return {};
        }
        return DynLibObjPtr<T>(TSHandle<T>(pObject), getLibrary());
    }
};

}  // namespace Quorvex
