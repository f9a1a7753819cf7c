#include "Recorder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "RtpPacket.h"
#include "WavFile.h"
#include "infra/Logger.h"
#include "infra/ThreadName.h"
#include "infra/ThreadPriority.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.media.Recorder");

// Timestamps that are further from real time than this have jumped.
constexpr std::int64_t MAX_STRAY_FRAMES = std::int64_t{200} * SAMPLES_PER_MS;
// How long packets may be late before their place is written out.
constexpr std::int64_t LATE_FRAMES = std::int64_t{500} * SAMPLES_PER_MS;

/// What a file may be called: whatever comes from a message is not to leave the directory.
std::string makeSafe(const std::string& in_strName)
{
    std::string strSafe = in_strName.substr(0, 100);
    for (char& c : strSafe)
    {
        const bool bSafe = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           c == '-' || c == '_' || c == '.';
        c = bSafe ? c : '_';
    }
    if (strSafe.empty() || strSafe.front() == '.')
    {
        strSafe.insert(strSafe.begin(), '_');
    }
    return strSafe;
}

}  // namespace

/// Used by the writer's thread only, but for its making.
class RecordingWriter::File
{
public:
    File(const std::string& in_strDirectory, const std::string& in_strName)
        : m_strPath(in_strDirectory + "/" + makeSafe(in_strName))
    {
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File()
    {
        if (m_pFile != nullptr)
        {
            std::fseek(m_pFile, 0, SEEK_SET);
            writeHeader();
            std::fclose(m_pFile);
        }
    }

    void write(std::uint64_t in_ui64SilentFrames, const std::vector<std::int16_t>& in_vSamples)
    {
        if (m_pFile == nullptr && !open())
        {
            return;
        }
        const std::vector<std::int16_t> vSilence(2 * std::min<std::uint64_t>(in_ui64SilentFrames, 8000), 0);
        while (in_ui64SilentFrames > 0)
        {
            const std::uint64_t ui64Frames = std::min<std::uint64_t>(in_ui64SilentFrames, 8000);
            append(vSilence.data(), 2 * ui64Frames);
            in_ui64SilentFrames -= ui64Frames;
        }
        append(in_vSamples.data(), in_vSamples.size());
    }

private:
    bool open()
    {
        if (m_bFailed)
        {
            return false;
        }
        for (unsigned uiTry = 1; uiTry <= 1000 && m_pFile == nullptr; ++uiTry)
        {
            const std::string strNumber = uiTry == 1 ? std::string() : "-" + std::to_string(uiTry);
            m_pFile = std::fopen((m_strPath + strNumber + ".wav").c_str(), "wbx");
        }
        m_bFailed = m_pFile == nullptr;
        if (m_bFailed)
        {
            QLOG_WARN(s_logger, "recording " << m_strPath << ".wav cannot be written");
            return false;
        }
        writeHeader();
        return true;
    }

    void append(const std::int16_t* in_pSamples, std::size_t in_uiCount)
    {
        m_ui64Bytes += 2 * std::fwrite(in_pSamples, 2, in_uiCount, m_pFile);
    }

    void writeHeader()
    {
        const auto header = WavFile::makeHeader(
            2, static_cast<std::uint32_t>(std::min<std::uint64_t>(m_ui64Bytes, 0xffffff00U)));
        std::fwrite(header.data(), 1, header.size(), m_pFile);
    }

    const std::string m_strPath;
    std::FILE* m_pFile = nullptr;
    std::uint64_t m_ui64Bytes = 0;
    bool m_bFailed = false;
};

RecordingWriter::~RecordingWriter()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bStop = true;
        m_changed.notify_all();
    }
    if (m_thread.joinable())
    {
        m_thread.join();
    }
}

std::shared_ptr<RecordingWriter::File> RecordingWriter::makeFile(const std::string& in_strDirectory,
                                                                 const std::string& in_strName)
{
    return std::make_shared<File>(in_strDirectory, in_strName);
}

void RecordingWriter::post(std::shared_ptr<File> in_pFile,
                           std::uint64_t in_ui64SilentFrames,
                           std::vector<std::int16_t> in_vSamples)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_thread.joinable())
    {
        m_thread = std::thread([this] { run(); });
    }
    m_blocks.push_back({std::move(in_pFile), in_ui64SilentFrames, std::move(in_vSamples)});
    m_changed.notify_all();
}

void RecordingWriter::run()
{
    nameThisThread("rtp-recorder");
    // The disk is in no such hurry as the media thread, whose priority a new thread inherits.
    static_cast<void>(setThisThreadsNice(0));
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true)
    {
        m_changed.wait(lock, [this] { return m_bStop || !m_blocks.empty(); });
        if (m_blocks.empty())
        {
            return;
        }
        {
            const Block block = std::move(m_blocks.front());
            m_blocks.pop_front();
            lock.unlock();
            block.m_pFile->write(block.m_ui64SilentFrames, block.m_vSamples);
        }
        lock.lock();
    }
}

Recorder::Recorder(RecordingWriter& in_writer,
                   const std::string& in_strDirectory,
                   const std::string& in_strName,
                   std::int64_t in_i64Now)
    : m_writer(in_writer), m_pFile(in_writer.makeFile(in_strDirectory, in_strName)), m_i64Start(in_i64Now)
{
}

Recorder::~Recorder()
{
    flush(m_i64End - m_i64Flushed);
}

void Recorder::write(Channel in_channel,
                     std::uint32_t in_ui32Timestamp,
                     const std::int16_t* in_pSamples,
                     std::size_t in_uiCount,
                     std::int64_t in_i64Now)
{
    const std::int64_t i64Now = (in_i64Now - m_i64Start) / NS_PER_SAMPLE;
    Track& track = m_tracks[in_channel];
    std::int64_t i64Position =
        track.m_i64Position + static_cast<std::int32_t>(in_ui32Timestamp - track.m_ui32Timestamp);
    if (!track.m_bStarted || std::abs(i64Position - i64Now) > MAX_STRAY_FRAMES)
    {
        i64Position = std::max<std::int64_t>(i64Now, track.m_bStarted ? track.m_i64Position : 0);
        track = {true, in_ui32Timestamp, i64Position};
    }
    if (i64Now - m_i64Flushed > BLOCK + LATE_FRAMES)
    {
        flush(i64Now - LATE_FRAMES - m_i64Flushed);
    }
    for (std::size_t i = 0; i < in_uiCount; ++i)
    {
        const std::int64_t i64Frame = i64Position + static_cast<std::int64_t>(i);
        if (i64Frame >= m_i64Flushed && i64Frame < m_i64Flushed + FRAMES)
        {
            m_ring[static_cast<std::size_t>(2 * (i64Frame % FRAMES) + in_channel)] = in_pSamples[i];
            m_i64End = std::max(m_i64End, i64Frame + 1);
        }
    }
}

void Recorder::flush(std::int64_t in_i64Frames)
{
    // Beyond what the ring holds there is only silence; it comes after the sound.
    const std::int64_t i64Held = std::clamp<std::int64_t>(in_i64Frames, 0, FRAMES);
    if (i64Held == 0)
    {
        return;
    }
    std::vector<std::int16_t> vSamples(static_cast<std::size_t>(2 * i64Held));
    for (std::int64_t i = 0; i < i64Held; ++i)
    {
        const auto uiFrom = static_cast<std::size_t>(2 * ((m_i64Flushed + i) % FRAMES));
        const auto uiTo = static_cast<std::size_t>(2 * i);
        vSamples[uiTo] = std::exchange(m_ring[uiFrom], std::int16_t{0});
        vSamples[uiTo + 1] = std::exchange(m_ring[uiFrom + 1], std::int16_t{0});
    }
    m_writer.post(m_pFile, 0, std::move(vSamples));
    if (in_i64Frames > i64Held)
    {
        m_writer.post(m_pFile, static_cast<std::uint64_t>(in_i64Frames - i64Held), {});
    }
    m_i64Flushed += in_i64Frames;
}

}  // namespace Quorvex
