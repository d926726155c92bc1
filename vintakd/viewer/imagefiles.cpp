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
