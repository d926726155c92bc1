#include "vintakd/viewer/vintakrawimage.h"

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
