#include "sipstack/base/FirstLine.h"

#include <cstring>

namespace Quorvex
{

namespace
{

bool isBlank(char in_c)
{
    return in_c == '\r' || in_c == '\n' || in_c == ' ' || in_c == '\t';
}

// Puts the line as received into the copy that is parsed, which is as long as the line without what stands
// before it.
void restoreLine(const msg_header_t* in_pHeader, char* out_szLine, isize_t in_length)
{
    const auto* const common = reinterpret_cast<const msg_common_t*>(in_pHeader);
    const auto* const raw = static_cast<const char*>(common->h_data);
    if (raw == nullptr || common->h_len == 0 || !isBlank(raw[0]))
    {
        return;
    }
    std::size_t skip = 0;
    while (skip < common->h_len && isBlank(raw[skip]))
    {
        ++skip;
    }
    const auto length = static_cast<std::size_t>(in_length);
    if (skip + length <= common->h_len)
    {
        std::memcpy(out_szLine, raw + skip, length);
    }
}

issize_t parseRequestLine(su_home_t* in_pHome, msg_header_t* out_pHeader, char* io_szLine, isize_t in_length)
{
    restoreLine(out_pHeader, io_szLine, in_length);
    return sip_request_class->hc_parse(in_pHome, out_pHeader, io_szLine, in_length);
}

issize_t parseStatusLine(su_home_t* in_pHome, msg_header_t* out_pHeader, char* io_szLine, isize_t in_length)
{
    restoreLine(out_pHeader, io_szLine, in_length);
    return sip_status_class->hc_parse(in_pHome, out_pHeader, io_szLine, in_length);
}

msg_mclass_t* makeMessageClass()
{
    static msg_hclass_s s_request;
    static msg_hclass_s s_status;
    std::memcpy(&s_request, sip_request_class, sizeof s_request);
    std::memcpy(&s_status, sip_status_class, sizeof s_status);
    s_request.hc_parse = parseRequestLine;
    s_status.hc_parse = parseStatusLine;
    msg_mclass_t* const copy = msg_mclass_clone(sip_default_mclass(), 0, 0);
    if (copy != nullptr)
    {
        copy->mc_request->hr_class = &s_request;
        copy->mc_status->hr_class = &s_status;
    }
    return copy;
}

}  // namespace

const msg_mclass_t* tolerantMessageClass()
{
    static const msg_mclass_t* const s_pClass = makeMessageClass();
    return s_pClass != nullptr ? s_pClass : sip_default_mclass();
}

}  // namespace Quorvex
