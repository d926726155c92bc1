#include "vintakd/viewer/conversionfiles.h"

#include <sys/stat.h>
#include <unistd.h>

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
}

void ConversionFiles::beginFrame(int frame) {
    removeFrame(frame);
    m_lastFrame = frame;
}

void ConversionFiles::abandon() const {
    removePack();
    if (m_quota.exceeded())
        removeAll();
    else if (specificFrame == 0)
        removeFramesFrom(m_lastFrame + 1);
    else if (m_lastFrame == 0)
        removeFrame(specificFrame);
}

void ConversionFiles::removeAll() const {
    removeEarlierOfObject();
    if (specificFrame == 0)
        removeFramesFrom(1);
    else
        removeFrame(specificFrame);
}

// The index first: where it is, the others are whole.
void ConversionFiles::removePack() const {
    if (!packs()) return;
    remove(outputPrefix + std::string(pack::kIndexSuffix));
    for (const std::string_view suffix : pack::kStoreSuffixes)
        remove(outputPrefix + std::string(suffix));
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

void ConversionFiles::removeFramesFrom(int frame) const {
    while (removeFrame(frame) || frame <= m_lastFrame)
        ++frame;
}
