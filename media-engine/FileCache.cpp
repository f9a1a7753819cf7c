#include "FileCache.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "WavFile.h"

namespace Quorvex
{

std::shared_ptr<const SampleVector> FileCache::load(const std::string& in_strPath, std::string& out_strError)
{
    struct stat status
    {
    };
    if (::stat(in_strPath.c_str(), &status) != 0)
    {
        out_strError = in_strPath + ": " + std::generic_category().message(errno);
        return nullptr;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry)
    {
        if (entry->m_strPath == in_strPath)
        {
            if (entry->m_iChanged == status.st_mtime && entry->m_iSize == status.st_size)
            {
                m_entries.splice(m_entries.begin(), m_entries, entry);
                return entry->m_pSamples;
            }
            m_entries.erase(entry);
            break;
        }
    }
    SampleVector samples;
    if (!WavFile::load(in_strPath, samples, out_strError))
    {
        return nullptr;
    }
    auto pSamples = std::make_shared<const SampleVector>(std::move(samples));
    m_entries.push_front({in_strPath, status.st_mtime, status.st_size, pSamples});
    if (m_entries.size() > MAX_FILES)
    {
        m_entries.pop_back();
    }
    return pSamples;
}

}  // namespace Quorvex
