#include "infra/DynLib.h"

#include <ace/DLL.h>

#include <filesystem>
#include <mutex>
#include <vector>

namespace Quorvex
{

namespace
{

std::mutex s_mutex;

std::vector<std::string>& folders()
{
    static std::vector<std::string> s_vFolders;
    return s_vFolders;
}

std::string resolve(const std::string& in_strName)
{
    if (in_strName.find('/') == std::string::npos)
    {
        const std::lock_guard guard(s_mutex);
        for (const std::string& folder : folders())
        {
            const std::filesystem::path path = std::filesystem::path(folder) / in_strName;
            std::error_code ignored;
            if (std::filesystem::exists(path, ignored))
            {
                return path.string();
            }
        }
    }
    return in_strName;
}

}  // namespace

struct DynLib::Impl
{
    ACE_DLL m_dll;
};

DynLib::DynLib(std::string in_strName, std::unique_ptr<Impl> in_pImpl)
    : m_strName(std::move(in_strName)), m_pImpl(std::move(in_pImpl))
{
}

DynLib::~DynLib() = default;

TSHandle<DynLib> DynLib::open(const std::string& in_strName, std::string& out_strError)
{
    const std::string path = resolve(in_strName);
    auto pImpl = std::make_unique<Impl>();
    // All symbols are bound at once: a library that lacks one must fail here, not in the middle of a call.
    if (pImpl->m_dll.open(path.c_str(), RTLD_NOW, true) != 0)
    {
        const char* szError = pImpl->m_dll.error();
        out_strError = szError != nullptr ? szError : "cannot be opened: " + path;
        return {};
    }
    return TSHandle<DynLib>(new DynLib(in_strName, std::move(pImpl)));
}

void DynLib::addSearchFolder(const std::string& in_strFolder)
{
    const std::lock_guard guard(s_mutex);
    folders().push_back(in_strFolder);
}

void* DynLib::symbol(const std::string& in_strName) const
{
    return m_pImpl->m_dll.symbol(in_strName.c_str(), 1);
}

}  // namespace Quorvex
