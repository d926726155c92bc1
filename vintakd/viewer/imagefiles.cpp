// The files of one frame: which of them are written, where and under which names.
#include <cstdint>

#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

bool CVintakRawImage::writeRawFile(std::FILE* file) {
    return std::fwrite(data(), 1, size(), file) == size();
}

int CVintakRawImage::writeQXIDHeader(std::FILE* file) {
    if (!file) return 0;
    constexpr uint32_t version = 0x00180001;  // 24 bytes of header, layout 1
    const double signedWidth = context().invert ? -windowWidth() : windowWidth();
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
    m_files->beginFrame(frameNumber());
    if (m_descFile.get()) {
        raw->printDesc(m_descFile.get());
        m_descFile.noteError();
    }
    if (!writePixels(*raw) || !writeStreamElements(*raw)) return false;
    bool result = true;
    if (m_files->writes(framefile::thumbnail)) {
        OutputFile pixels(*this), compressed(*this);
        if (!openWanted(pixels, framefile::thumbnailRaw) || !openWanted(compressed, framefile::thumbnail))
            return false;
        result = raw->createAndWriteThumbnail(pixels.get(), compressed.get());
        for (OutputFile* file : {&pixels, &compressed})
            if (!result) file->dropEmpty();
        const bool pixelsClosed = pixels.close(), compressedClosed = compressed.close();
        if (!result)
            reportFailure("The thumbnail of frame " + std::to_string(frameNumber()) + " cannot be written");
        result = result && pixelsClosed && compressedClosed;
    }
    if (progressCallback()) progressCallback()->onFrameWritten();
    return result;
}

bool CVintakProcess::openWanted(OutputFile& file, const FrameFile& kind) {
    return !m_files->writes(kind) || file.open(m_files->path(kind, frameNumber()));
}

bool CVintakProcess::writePixels(CVintakRawImage& raw) {
    if (!m_files->writes(framefile::raw)) return true;
    quota().take(raw.size());
    OutputFile pixels(*this);
    if (!openWanted(pixels, framefile::raw)) return false;
    const bool written = raw.writeRawFile(pixels.get());
    return pixels.close() && written;
}

bool CVintakProcess::writeStreamElements(CVintakRawImage& raw) {
    constexpr auto loss = OutputFile::Loss::isLogged;
    OutputFile rest(*this, loss), first(*this, loss), preview(*this, loss);
    if (!openWanted(rest, framefile::rest) || !openWanted(first, framefile::first) ||
        !openWanted(preview, framefile::preview))
        return false;
    const bool written = raw.createAndWriteCompressedStreamElements(rest.get(), first.get(), preview.get());
    for (OutputFile* file : {&rest, &first, &preview})
        if (!written) file->dropEmpty();
    return true;
}
