#include "vintakd/viewer/vintakrawimage.h"

#include "hsutils/Utils.h"
#include "imgproc/operationallog.h"
#include "vintakd/viewer/descriptor.h"
#include "vintakd/viewer/streamelements.h"
#include "vintakd/viewer/thumbnails.h"
#include "vintakd/viewer/vintakprocess.h"

CVintakRawImage::CVintakRawImage(CVintakProcess* process, FrameContext context, int frame)
    : CRawImage(process, std::move(context), frame) {}

CVintakProcess* CVintakRawImage::viewerProcess() const {
    return static_cast<CVintakProcess*>(process());
}

bool CVintakRawImage::init() {
    if (!CRawImage::init()) return false;
    const FrameAttributes attributes = viewerProcess()->frameAttributes(kind());
    m_rescaleIntercept = attributes.rescaleIntercept;
    m_rescaleSlope = attributes.rescaleSlope;
    m_windowCenter = attributes.windowCenter;
    m_windowWidth = attributes.windowWidth;
    return true;
}

void CVintakRawImage::optimizeBitmap() {
    if (viewerProcess()->needOptimize()) CRawImage::optimizeBitmap();
}

FramePixels CVintakRawImage::pixels() const {
    return {.data = data(),
            .size = size(),
            .columns = context().columns,
            .rows = context().rows,
            .bytesPerPixel = bytesPerSample(),
            .bitsUsed = bitsUsed(),
            .rescaleIntercept = rescaleIntercept(),
            .rescaleSlope = rescaleSlope(),
            .windowCenter = windowCenter(),
            .windowWidth = context().invert ? -windowWidth() : windowWidth()};
}

std::string CVintakRawImage::describedLine() const {
    const CVintakProcess* process = viewerProcess();
    return descriptorLine({.number = kind(),
                           .layout = layout(),
                           .sampleWidth = sampleWidth(),
                           .frameOfReferenceUID = process->frameOfReferenceUID(),
                           .attributes = process->frameAttributes(kind())},
                          pixels());
}

int CVintakRawImage::printDesc(std::FILE* file) const {
    const CVintakProcess* process = viewerProcess();
    if (!process || !file) return 1;
    const std::string line = describedLine();
    process->quota().take(line.size());
    std::fwrite(line.data(), 1, line.size(), file);
    return 1;
}

bool CVintakRawImage::writeRawFile(std::FILE* file) {
    return std::fwrite(data(), 1, size(), file) == size();
}

// The streams' files fail no conversion, so the log is the only place where their loss is told.
bool CVintakRawImage::createAndWriteCompressedStreamElements(std::FILE* f, std::FILE* t, std::FILE* p) const {
    std::string cause;
    const bool written = writeStreamElements(pixels(), {f, t, p}, viewerProcess()->quota(), cause);
    if (!cause.empty())
        OFLOG_ERROR(operationalLogger(), "No stream files " << printable(viewerProcess()->outputPrefix())
                                                            << "_" << viewerProcess()->frameNumber()
                                                            << ".*.qi4: " << cause);
    return written;
}

bool CVintakRawImage::createAndWriteThumbnail(std::FILE* thumbRaw, std::FILE* thumbCw1) {
    std::string cause;
    const bool written =
        writeThumbnail(pixels(), context().modality, thumbRaw, thumbCw1, viewerProcess()->quota(), cause);
    if (!cause.empty())
        viewerProcess()->reportFailure("The thumbnail of frame " +
                                       std::to_string(viewerProcess()->frameNumber()) + " cannot be " +
                                       cause);
    return written;
}
