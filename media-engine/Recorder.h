#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "infra/MemAccount.h"

namespace Quorvex
{

/// Writes recordings to disk on a thread of its own, so that a slow disk never holds up the sound.
class RecordingWriter
{
public:
    RecordingWriter() = default;
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;
    /// Writes what is left, then ends.
    ~RecordingWriter();

    class File;

    /// A file that is made when its first block comes. The name gets a number when it is taken.
    std::shared_ptr<File> makeFile(const std::string& in_strDirectory, const std::string& in_strName);
    /// Frames of two samples, after silence of so many frames. Never blocks on the disk.
    void post(std::shared_ptr<File> in_pFile,
              std::uint64_t in_ui64SilentFrames,
              std::vector<std::int16_t> in_vSamples);

private:
    struct Block
    {
        std::shared_ptr<File> m_pFile;
        std::uint64_t m_ui64SilentFrames;
        std::vector<std::int16_t> m_vSamples;
    };

    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Block> m_blocks;
    bool m_bStop = false;
    std::thread m_thread;
};

/// Records one endpoint: what it received on the left, what it sent on the right, in step with real time.
/// Media thread.
class Recorder
{
public:
    QUORVEX_MEM_ACCOUNT("MediaRecorder");

    enum Channel
    {
        RECEIVED = 0,
        SENT = 1
    };

    Recorder(RecordingWriter& in_writer,
             const std::string& in_strDirectory,
             const std::string& in_strName,
             std::int64_t in_i64Now);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder();

    /// Takes the sound of one packet. Packets of one channel are placed by their timestamps as long as these
    /// keep step.
    void write(Channel in_channel,
               std::uint32_t in_ui32Timestamp,
               const std::int16_t* in_pSamples,
               std::size_t in_uiCount,
               std::int64_t in_i64Now);

private:
    static constexpr std::int64_t FRAMES = 16384;
    static constexpr std::int64_t BLOCK = 8000;

    struct Track
    {
        bool m_bStarted = false;
        std::uint32_t m_ui32Timestamp = 0;
        std::int64_t m_i64Position = 0;
    };

    void flush(std::int64_t in_i64Frames);

    RecordingWriter& m_writer;
    const std::shared_ptr<RecordingWriter::File> m_pFile;
    const std::int64_t m_i64Start;
    // Frames before this one were handed to the writer; the last one that holds something.
    std::int64_t m_i64Flushed = 0;
    std::int64_t m_i64End = 0;
    std::array<Track, 2> m_tracks;
    std::array<std::int16_t, 2 * FRAMES> m_ring{};
};

}  // namespace Quorvex
