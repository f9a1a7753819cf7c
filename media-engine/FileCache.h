#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "AudioSource.h"

namespace Quorvex
{

/// Recordings that were read, as samples of 8 kHz; a file that changed is read again. Any thread.
class FileCache
{
public:
    /// Null, with one sentence, when the file cannot be read or is longer than ten minutes.
    std::shared_ptr<const SampleVector> load(const std::string& in_strPath, std::string& out_strError);

private:
    struct Entry
    {
        std::string m_strPath;
        long m_iChanged = 0;
        long m_iSize = 0;
        std::shared_ptr<const SampleVector> m_pSamples;
    };

    static constexpr std::size_t MAX_FILES = 64;

    std::mutex m_mutex;
    // The most recently used first.
    std::list<Entry> m_entries;
};

}  // namespace Quorvex
