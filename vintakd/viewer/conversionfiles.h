#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "hsutils/ConversionPart.h"
#include "vintakd/viewer/outputquota.h"

/// Which files a conversion writes (the request's write mask).
namespace writemask {
inline constexpr uint32_t kPreview = 0x01;         ///< write ".p.qi4"
inline constexpr uint32_t kStreamElements = 0x02;  ///< write ".t.qi4" and ".f.qi4"
inline constexpr uint32_t kNoThumbnails = 0x04;    ///< write neither thumbnail
inline constexpr uint32_t kNoRaw = 0x10;           ///< write neither ".raw" nor ".128x128t.raw"
inline constexpr uint32_t kPacked = 0x20;          ///< write the frames' files into a pack
inline constexpr uint32_t kKnown = 0x37;           ///< all of these
}  // namespace writemask

/// One kind of file that a frame may have.
struct FrameFile {
    const char* suffix;
    bool cached;        ///< lies in the cache location
    uint32_t wantedBy;  ///< the bit of the write mask that asks for it; 0: it needs none
    uint32_t unwantedBy;
};

namespace framefile {
inline constexpr FrameFile kRaw{".raw", true, 0, writemask::kNoRaw};
inline constexpr FrameFile kRest{".f.qi4", true, writemask::kStreamElements, 0};
inline constexpr FrameFile kFirst{".t.qi4", true, writemask::kStreamElements, 0};
inline constexpr FrameFile kPreview{".p.qi4", false, writemask::kPreview, 0};
inline constexpr FrameFile kThumbnailRaw{".128x128t.raw", true, 0,
                                         writemask::kNoThumbnails | writemask::kNoRaw};
inline constexpr FrameFile kThumbnail{".128x128t.cw1", false, 0, writemask::kNoThumbnails};
inline constexpr FrameFile kAll[] = {kRaw, kRest, kFirst, kPreview, kThumbnailRaw, kThumbnail};
}  // namespace framefile

/// What one conversion writes: under which names, and how much it may. An earlier conversion may have left
/// files under the same names. If this one fails they must not pass for its own, so what it would write is
/// removed before it begins (the object's files), before a frame's are written, and after a failure (the
/// frames that it never reached). Only regular files are removed, and never the object that is being read.
class ConversionFiles {
public:
    std::string outputPrefix;
    std::string cachePrefix;
    uint32_t mask = 0;
    bool noCached = false;
    int specificFrame = 0;  ///< 0: all frames
    bool copy = false;      ///< the processed copy is wanted
    bool packFinished = false;
    vintakd::ConversionPart part{};  ///< where the conversion is spread

    /// `input` is the path of the object; `quota` is borrowed.
    ConversionFiles(const std::string& input, OutputQuota& quota);

    bool writes(const FrameFile& kind) const {
        return !(kind.cached && noCached) && (mask & kind.wantedBy) == kind.wantedBy &&
               (mask & kind.unwantedBy) == 0;
    }
    /// Whether the frames' files go into a pack under the output prefix. Bits that mean nothing never did
    /// anything: a client that sets all of them did not ask for this one.
    bool packs() const { return (mask & writemask::kPacked) != 0 && (mask & ~writemask::kKnown) == 0; }
    /// The path of a frame's file; frames count from 1.
    std::string path(const FrameFile& kind, int frame) const;
    /// What the names of the pack's files begin with; that of a part lies in the folder of the parts.
    std::string packPrefix() const { return part.isOfFrames() ? partPrefix(part.number) : outputPrefix; }
    /// What the names of a part's files begin with that are only there until the parts are put together.
    std::string partPrefix(uint32_t number) const { return partsFolder() + "/" + std::to_string(number); }
    std::string factsOfPart(uint32_t number) const { return partPrefix(number) + ".facts"; }
    /// What the names of files begin with that hold raw pixels of several parts.
    std::string rawsOfParts() const { return partsFolder() + "/raws" + std::to_string(part.parts); }
    std::string partsFolder() const { return outputPrefix + ".parts"; }
    OutputQuota& quota() const { return m_quota; }

    void removeEarlierOfObject() const;
    void beginFrame(int frame);
    /// The conversion has failed. Beyond the quota nothing stays of it.
    void abandon() const;
    /// Whatever bears a name of this conversion.
    void removeAll() const;
    /// Removes the folder of the parts with all that a conversion may have left in it.
    void removeParts() const;

private:
    /// False when there was nothing to remove.
    bool remove(const std::string& path) const;
    void removePack() const { removePack(outputPrefix); }
    void removePack(const std::string& prefix) const;
    bool removeFrame(int frame) const;
    /// So many frames.
    void removeFrames(uint32_t first, uint32_t last) const;
    /// The frames from one on, those that began and then up to the first that has no file.
    void removeFramesFrom(int frame) const;

    OutputQuota& m_quota;
    dev_t m_inputDevice = 0;
    ino_t m_inputFile = 0;
    int m_lastFrame = 0;  ///< the last that began
};
