#pragma once

#include <vector>

#include "SdpInfo.h"
#include "infra/CountedObjPtr.h"

namespace Quorvex
{

/// The streams of a remote description, one per media section, in its order. Task thread.
class SdpInfoVector
{
public:
    using value_type = CountedObjPtr<SdpInfo>;
    using const_iterator = std::vector<value_type>::const_iterator;

    /// Takes the sections of a description in place of what is there. A section that cannot be used gives an
    /// invalid, inactive entry. Throws a DsException when a section cannot be read or its address cannot be
    /// resolved in time.
    void initFrom(const DsSdpMsg& in_msg, int in_iResolveTimeoutMs);

    void clear() { m_vInfo.clear(); }
    /// Gives up the sections of the usable streams, which have been read; those of the others are needed to
    /// reject them.
    void forgetUsedDescriptions();
    std::size_t size() const { return m_vInfo.size(); }
    bool empty() const { return m_vInfo.empty(); }
    const SdpInfo& operator[](std::size_t in_index) const { return *m_vInfo[in_index]; }
    const_iterator begin() const { return m_vInfo.begin(); }
    const_iterator end() const { return m_vInfo.end(); }

private:
    static value_type makeInfo(const DsSdpMsg& in_msg,
                               const DsHandle<DsSdpMediaDescription>& in_hMedia,
                               int in_iResolveTimeoutMs);
    static void parseMediaAttributes(const DsSdpAttributeVector& in_vAttributes, SdpInfo& io_info);
    static bool initAddress(const DsSdpConnectionField* in_pConnection,
                            int in_iResolveTimeoutMs,
                            SdpInfo& io_info);

    std::vector<value_type> m_vInfo;
};

}  // namespace Quorvex
