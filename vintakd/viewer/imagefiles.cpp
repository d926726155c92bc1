// The files of one frame: which of them are written, in which order, and what a failure does.
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

bool CVintakProcess::writeImageFiles(CVintakRawImage* raw) {
    m_files->beginFrame(frameNumber());
    if (m_descFile.get()) {
        raw->printDesc(m_descFile.get());
        m_descFile.noteError();
    }
    if (!writePixels(*raw) || !writeStreamElements(*raw)) return false;
    bool result = true;
    if (m_files->writes(framefile::kThumbnail)) {
        OutputFile pixels(*this), compressed(*this);
        if (!openWanted(pixels, framefile::kThumbnailRaw) || !openWanted(compressed, framefile::kThumbnail))
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
    if (!m_files->writes(framefile::kRaw)) return true;
    quota().take(raw.size());
    OutputFile pixels(*this);
    if (!openWanted(pixels, framefile::kRaw)) return false;
    const bool written = raw.writeRawFile(pixels.get());
    return pixels.close() && written;
}

bool CVintakProcess::writeStreamElements(CVintakRawImage& raw) {
    constexpr auto kLoss = OutputFile::Loss::isLogged;
    OutputFile rest(*this, kLoss), first(*this, kLoss), preview(*this, kLoss);
    if (!openWanted(rest, framefile::kRest) || !openWanted(first, framefile::kFirst) ||
        !openWanted(preview, framefile::kPreview))
        return false;
    const bool written = raw.createAndWriteCompressedStreamElements(rest.get(), first.get(), preview.get());
    for (OutputFile* file : {&rest, &first, &preview})
        if (!written) file->dropEmpty();
    return true;
}
