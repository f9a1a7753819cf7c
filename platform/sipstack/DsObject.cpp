#include "sipstack/DsObject.h"

#include <functional>
#include <ostream>
#include <typeinfo>

#include "sipstack/DsException.h"

namespace Quorvex
{

DsObject::~DsObject() = default;

DsObject* DsObject::clone() const
{
    throw DsException(std::string("an object of class ") + typeid(*this).name() + " cannot be copied");
}

int DsObject::compareWith(const DsObject& in_other) const
{
    if (this == &in_other)
    {
        return 0;
    }
    return std::less<const DsObject*>()(this, &in_other) ? -1 : 1;
}

std::size_t DsObject::hashCode() const
{
    return std::hash<const DsObject*>()(this);
}

std::ostream& DsObject::display(std::ostream& out_stream) const
{
    return out_stream << typeid(*this).name();
}

void DsObject::AddRef() const
{
    m_uiRefs.fetch_add(1, std::memory_order_relaxed);
}

void DsObject::Release() const
{
    if (m_uiRefs.fetch_sub(1, std::memory_order_acq_rel) == 1)
    {
        delete this;
    }
}

std::ostream& operator<<(std::ostream& out_stream, const DsObject& in_object)
{
    return in_object.display(out_stream);
}

}  // namespace Quorvex
