#include "vintakd/viewer/vintakprocess.h"

#include <algorithm>
#include <cstdlib>

#include "codecs/codecregistry.h"
#include "vintakd/viewer/vintakrawimage.h"

CVintakProcess::CVintakProcess(DcmDataset* dataset, bool verbose, bool dumponly, bool escapeNewLines,
                               const char* outputPrefix, const char* cachePrefix, int specificFrame)
    : CImageProcess(dataset, &frameMemory, verbose, dumponly, escapeNewLines, specificFrame),
      m_ownFiles("", m_noQuota) {
    m_ownFiles.outputPrefix = outputPrefix ? outputPrefix : "";
    m_ownFiles.cachePrefix = cachePrefix ? cachePrefix : m_ownFiles.outputPrefix;
    m_ownFiles.specificFrame = specificFrame;
    initFunction2();
}

CVintakProcess::~CVintakProcess() = default;

FrameAttributes CVintakProcess::frameAttributes(int frame) const {
    // The object may name fewer frames after the entries were made.
    const size_t entries = std::min<size_t>(m_frames.size(), attributes().numberOfFrames);
    return resolveFrame(frame, frames().first(entries), m_sharedFrame);
}

CRawImage* CVintakProcess::createRawImage() {
    return new CVintakRawImage(this, frameContext(), imagesStarted());
}

bool CVintakProcess::initProcess() {
    if (!CImageProcess::initProcess()) return false;
    registerCodecs();
    if (!dumpOnly() && specificFrame() == 0 && !m_descFile.open(outputPrefix() + ".desc")) return false;
    if (const char* directory = std::getenv("DOWNLOAD_HOME"))
        readIncludeConfig((std::string(directory) + "/privtags.cfg").c_str());
    if (const char* directory = std::getenv("CONF"))
        readIncludeConfig((std::string(directory) + "/include.conf").c_str());
    return true;
}

bool CVintakProcess::finalizeProcess() {
    const bool finalized = CImageProcess::finalizeProcess();
    // Lines of the descriptor may still be on their way: a full disk must not pass for success.
    const bool described = m_descFile.close();
    return finalized && described;
}

bool CVintakProcess::isIncluded(const DcmTag& tag) {
    return m_includeList.includes(tag);
}

void CVintakProcess::registerCodecs() {
    if (!m_codecRegistry) m_codecRegistry = std::make_unique<CodecRegistry>();
}

void CVintakProcess::deregisterCodecs() {
    m_codecRegistry.reset();
}
