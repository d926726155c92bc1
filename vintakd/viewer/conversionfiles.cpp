#include "vintakd/viewer/conversionfiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "pack/PackError.h"
#include "pack/PackLock.h"
#include "pack/layout.h"

ConversionFiles::ConversionFiles(const std::string& input, OutputQuota& quota) : m_quota(quota) {
    struct stat status {};
    if (stat(input.c_str(), &status) != 0) return;
    m_inputDevice = status.st_dev;
    m_inputFile = status.st_ino;
}

std::string ConversionFiles::path(const FrameFile& kind, int frame) const {
    return (kind.cached ? cachePrefix : outputPrefix) + "_" + std::to_string(frame) + kind.suffix;
}

void ConversionFiles::removeEarlierOfObject() const {
    if (specificFrame == 0) remove(outputPrefix + ".desc");
    if (copy) remove(outputPrefix + ".pdcm");
    remove(outputPrefix + ".obsinfo");
    remove(outputPrefix + ".fingerprint");
    if (!noCached) remove(cachePrefix + ".pdf");
    removePack();
    if (part.isOfFrames()) {
        remove(factsOfPart(part.number));
        removePack(packPrefix());
    } else if (!part.joins()) {
        removeParts();
    }
}

void ConversionFiles::beginFrame(int frame) {
    removeFrame(frame);
    m_lastFrame = frame;
}

void ConversionFiles::abandon() const {
    if (packFinished) removePack(packPrefix());  // an unfinished one has gone, and its names may be another's
    if (m_quota.exceeded())
        removeAll();
    else if (part.isSpread())
        removeFrames(std::max(static_cast<uint32_t>(m_lastFrame) + 1, part.first), part.last);
    else if (specificFrame == 0)
        removeFramesFrom(m_lastFrame + 1);
    else if (m_lastFrame == 0)
        removeFrame(specificFrame);
}

void ConversionFiles::removeAll() const {
    removeEarlierOfObject();
    if (part.isSpread())
        removeFrames(part.first, part.last);
    else if (specificFrame == 0)
        removeFramesFrom(1);
    else
        removeFrame(specificFrame);
}

// The index first: where it is, the others are whole.
void ConversionFiles::removePack(const std::string& prefix) const {
    if (!packs()) return;
    try {
        const pack::PackLock lock(prefix);
        remove(prefix + std::string(pack::kIndexSuffix));
        remove(pack::PackLock::tokenOf(prefix));
        for (const std::string_view suffix : pack::kStoreSuffixes)
            remove(prefix + std::string(suffix));
    } catch (const pack::PackError&) {
        // Somebody holds the folder: whoever writes a pack there is told so.
    }
}

// Whatever another number of parts left there, none of which is a folder.
void ConversionFiles::removeParts() const {
    const std::string folder = partsFolder();
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return;
    std::error_code ignored;
    for (std::filesystem::directory_iterator each(folder, ignored), end; each != end; each.increment(ignored))
        remove(each->path().string());
    rmdir(folder.c_str());
}

bool ConversionFiles::remove(const std::string& path) const {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (status.st_dev == m_inputDevice && status.st_ino == m_inputFile) return false;
    return unlink(path.c_str()) == 0;
}

bool ConversionFiles::removeFrame(int frame) const {
    bool removed = false;
    if (packs()) return false;
    for (const FrameFile& kind : framefile::kAll)
        if (writes(kind)) removed = remove(path(kind, frame)) || removed;
    return removed;
}

void ConversionFiles::removeFrames(uint32_t first, uint32_t last) const {
    for (uint32_t frame = first; frame <= last; ++frame)
        removeFrame(static_cast<int>(frame));
}

void ConversionFiles::removeFramesFrom(int frame) const {
    while (removeFrame(frame) || frame <= m_lastFrame)
        ++frame;
}
