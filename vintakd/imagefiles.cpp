// The files of one frame: which of them are written, where and under which names.
#include <cstdint>

#include "vintakd/vintakprocess.h"
#include "vintakd/vintakrawimage.h"

bool CVintakRawImage::writeRawFile(std::FILE* file) {
    return std::fwrite(data(), 1, size(), file) == size();
}

int CVintakRawImage::writeQXIDHeader(CVintakProcess* process, std::FILE* file) {
    if (!file) return 0;
    constexpr uint32_t version = 0x00180001;  // 24 bytes of header, layout 1
    const double signedWidth = process && process->invertMonochrome() ? -windowWidth() : windowWidth();
    const auto intercept = static_cast<float>(rescaleIntercept());
    const auto slope = static_cast<float>(rescaleSlope());
    const auto width = static_cast<float>(signedWidth);
    const auto center = static_cast<float>(windowCenter());
    std::fwrite("QXID", 4, 1, file);
    std::fwrite(&version, sizeof version, 1, file);
    std::fwrite(&intercept, sizeof intercept, 1, file);
    std::fwrite(&slope, sizeof slope, 1, file);
    std::fwrite(&width, sizeof width, 1, file);
    std::fwrite(&center, sizeof center, 1, file);
    return 1;
}

bool CVintakProcess::writeImageFiles(CVintakRawImage* raw) {
    if (m_descFile.get()) {
        raw->printDesc(m_descFile.get());
        m_descFile.noteError();
    }
    const int number = specificFrame() > 0 ? specificFrame() : imagesStarted();
    const std::string frameName = "_" + std::to_string(number);
    if (!(m_noCached ? writePreviewOnly(*raw, frameName) : writeCachedFiles(*raw, frameName))) return false;
    bool result = true;
    if (!wants(writemask::noThumbnails)) {
        OutputFile pixels(*this), compressed(*this);
        const bool withPixels = !m_noCached && !wants(writemask::noRaw);
        if (withPixels && !pixels.open(m_cachePrefix + frameName + ".128x128t.raw")) return false;
        if (!compressed.open(m_outputPrefix + frameName + ".128x128t.cw1")) return false;
        result = raw->createAndWriteThumbnail(pixels.get(), compressed.get());
        const bool pixelsClosed = pixels.close(), compressedClosed = compressed.close();
        if (!result) reportFailure("The thumbnail of frame " + std::to_string(number) + " cannot be written");
        result = result && pixelsClosed && compressedClosed;
    }
    if (progressCallback()) progressCallback()->onFrameWritten();
    return result;
}

bool CVintakProcess::writePreviewOnly(CVintakRawImage& raw, const std::string& frameName) {
    constexpr auto loss = OutputFile::Loss::isLogged;
    OutputFile rest(*this, loss), first(*this, loss), preview(*this, loss);
    if (wants(writemask::preview) && !preview.open(m_outputPrefix + frameName + ".p.qi4")) return false;
    raw.createAndWriteCompressedStreamElements(rest.get(), first.get(), preview.get());
    return true;
}

bool CVintakProcess::writeCachedFiles(CVintakRawImage& raw, const std::string& frameName) {
    if (!wants(writemask::noRaw)) {
        OutputFile pixels(*this);
        if (!pixels.open(m_cachePrefix + frameName + ".raw")) return false;
        const bool written = raw.writeRawFile(pixels.get());
        if (!pixels.close() || !written) return false;
    }
    constexpr auto loss = OutputFile::Loss::isLogged;
    OutputFile rest(*this, loss), first(*this, loss), preview(*this, loss);
    if (wants(writemask::streamElements)) {
        if (!rest.open(m_cachePrefix + frameName + ".f.qi4")) return false;
        if (!first.open(m_cachePrefix + frameName + ".t.qi4")) return false;
    }
    if (wants(writemask::preview) && !preview.open(m_outputPrefix + frameName + ".p.qi4")) return false;
    raw.createAndWriteCompressedStreamElements(rest.get(), first.get(), preview.get());
    return true;
}
