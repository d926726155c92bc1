#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "imgproc/framecontext.h"
#include "imgproc/framepart.h"
#include "pack/PackStore.h"
#include "pack/PackWriter.h"

/// What a servant that converted a part of an object tells the one that puts the parts together: frame after
/// frame its line of the descriptor and its findings, in the end what the part was. A file between servants
/// of one daemon; it lives no longer than the conversion.
class PartFactsWriter {
public:
    /// Everything throws pack::PackError.
    PartFactsWriter(const std::string& path, const FramePart& part);

    void add(const FrameFindings& findings, std::string_view line);
    /// `bytesTaken` is what the part took of its quota, `raws` where its raw pixels went. Throws as well when
    /// not all frames of the part came.
    void finish(const FramePart& part, uint64_t bytesTaken, const pack::SharedRaws& raws);

private:
    void put(const void* bytes, size_t size);

    pack::PackStore m_file;
    uint32_t m_sum = 0;
    uint32_t m_frames = 0;
};

/// Reads them again, one frame at a time. Everything throws pack::PackError, for what is damaged as well.
class PartFactsReader {
public:
    explicit PartFactsReader(std::string path);
    ~PartFactsReader();
    PartFactsReader(const PartFactsReader&) = delete;
    PartFactsReader& operator=(const PartFactsReader&) = delete;

    /// First and last frame; the rest once all frames were read.
    const FramePart& part() const { return m_part; }
    uint64_t bytesTaken() const { return m_bytesTaken; }
    const pack::SharedRaws& raws() const { return m_raws; }
    /// The next frame, its line with the line feed; false when there are no more, and all was as it was
    /// written.
    bool next(FrameFindings& findings, std::string& line);

private:
    void get(void* bytes, size_t size);
    std::string text();
    void readEnd();
    [[noreturn]] void refuse(const char* cause) const;

    std::string m_path;
    std::FILE* m_file;
    uint32_t m_sum = 0;
    uint32_t m_frames = 0;  ///< read so far
    FramePart m_part;
    uint64_t m_bytesTaken = 0;
    pack::SharedRaws m_raws;
};
