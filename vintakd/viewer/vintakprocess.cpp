#include "vintakd/viewer/vintakprocess.h"

#include <algorithm>
#include <optional>

#include "codecs/codecregistry.h"
#include "hsutils/StageClock.h"
#include "imgproc/pbrcontent.h"
#include "pack/PackError.h"
#include "pack/PackWriter.h"
#include "vintakd/viewer/partfacts.h"
#include "vintakd/viewer/studyfiles.h"
#include "vintakd/viewer/vintakencapsulateddocument.h"
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

void CVintakProcess::writeThrough(ConversionFiles& files) {
    m_files = &files;
    if (files.part.isOfFrames()) setPart(files.part.first, files.part.last);
}

FrameAttributes CVintakProcess::frameAttributes(int frame) const {
    // The object may name fewer frames after the entries were made.
    const size_t entries = std::min<size_t>(m_frames.size(), attributes().numberOfFrames);
    if (frame < 1 || static_cast<size_t>(frame) > entries) return resolveFrame(frame, nullptr, m_sharedFrame);
    const CFrameInfo own = m_frames.at(static_cast<size_t>(frame) - 1);
    return resolveFrame(frame, &own, m_sharedFrame);
}

CRawImage* CVintakProcess::createRawImage() {
    return new CVintakRawImage(this, frameContext(), imagesStarted());
}

bool CVintakProcess::initProcess() {
    if (!CImageProcess::initProcess()) return false;
    registerCodecs();
    if (m_files->part.isOfFrames() && !beginPart()) return false;
    if (!dumpOnly() && specificFrame() == 0 && !m_facts && !m_descFile.open(outputPrefix() + ".desc"))
        return false;
    if (!dumpOnly() && m_files->packs() && !beginPack()) return false;
    if (!m_includeList) m_includeList = IncludeList::configured();
    return true;
}

bool CVintakProcess::finalizeProcess() {
    const bool finalized = CImageProcess::finalizeProcess();
    // Lines of the descriptor may still be on their way: a full disk must not pass for success.
    const InStage writing(Stage::write);
    const bool described = m_descFile.close();
    return finalized && described;
}

bool CVintakProcess::beginPack() {
    const std::string& prefix = outputPrefix();
    const std::string name = prefix.substr(prefix.rfind('/') + 1);
    try {
        m_pack = std::make_unique<pack::PackWriter>(m_files->packPrefix(), pack::Order::asGiven);
        m_pack->beginObject(pack::isSafeName(name) ? name : "o");
        if (m_files->part.isOfFrames())
            m_pack->shareRaws(m_files->rawsOfParts(), part().first - 1, part().count());
    } catch (const pack::PackError& error) {
        reportFailure(error.what(), ErrorClass::output);
        return false;
    }
    return true;
}

void CVintakProcess::finishPack() {
    const InStage writing(Stage::write);
    if (m_pack) m_pack->finish();
    m_files->packFinished = m_pack != nullptr;
    if (m_facts) m_facts->finish(part(), quota().taken(), m_pack ? m_pack->sharedRaws() : pack::SharedRaws{});
    m_pack.reset();
    m_facts.reset();
    if (m_files->part.joins()) m_files->removeParts();
}

bool CVintakProcess::isIncluded(const DcmTag& tag) {
    return m_includeList && m_includeList->includes(tag);
}

void CVintakProcess::registerCodecs() {
    if (!m_codecRegistry) m_codecRegistry = std::make_unique<CodecRegistry>();
}

void CVintakProcess::deregisterCodecs() {
    m_codecRegistry.reset();
}

CEncapsulatedDocument* CVintakProcess::createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) {
    return new CVintakEncapsulatedDocument(this, memory(), type, size);
}

bool CVintakProcess::postProcess(CExtractedData* item) {
    if (dumpOnly()) return true;
    if (!item || !CImageProcess::postProcess(item)) return false;
    if (auto* raw = dynamic_cast<CVintakRawImage*>(item)) return writeImageFiles(raw);
    if (auto* document = dynamic_cast<CVintakEncapsulatedDocument*>(item))
        return writeDocumentFiles(document);
    if (auto* content = dynamic_cast<CPbRContent*>(item)) {
        if (content->contentKind() == PbRKind::None)
            return true;  // it declares nothing, so nothing is written
        return writeObsInfo(content) && writeFingerPrint(content);
    }
    return false;
}

bool CVintakProcess::writeDocumentFiles(CVintakEncapsulatedDocument* document) {
    if (noCached()) return true;
    const InStage writing(Stage::write);
    quota().take(document->size());
    OutputFile file(*this);
    if (!file.open(cachePrefix() + (document->type() == DOCUMENT_PDF ? ".pdf" : "."))) return false;
    const bool written = document->writeDocumentFile(file.get());
    return file.close() && written;
}

bool CVintakProcess::writeObsInfo(CPbRContent* content) {
    if (content->contentKind() == PbRKind::None) return true;
    return writeText(".obsinfo", obsoleteResults(*content));
}

bool CVintakProcess::writeFingerPrint(CPbRContent* content) {
    return writeText(".fingerprint", content->fingerprint());
}

bool CVintakProcess::writeText(const std::string& suffix, const std::string& text) {
    const InStage writing(Stage::write);
    quota().take(text.size());
    OutputFile file(*this);
    if (!file.open(outputPrefix() + suffix)) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return file.close() && written;
}

bool CVintakProcess::writeImageFiles(CVintakRawImage* raw) {
    const InStage writing(Stage::write);
    m_files->beginFrame(frameNumber());
    if (m_descFile.get()) {
        raw->printDesc(m_descFile.get());
        m_descFile.noteError();
    }
    if (m_facts && !recordImage(*raw)) return false;
    if (m_pack) return packImage(*raw);
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
            reportFailure("The thumbnail of frame " + std::to_string(frameNumber()) + " cannot be written",
                          ErrorClass::output);
        result = result && pixelsClosed && compressedClosed;
    }
    if (progressCallback()) progressCallback()->onFrameWritten();
    return result;
}

bool CVintakProcess::packImage(CVintakRawImage& raw) {
    try {
        const std::string line = raw.describedLine();
        quota().take(pack::PackWriter::indexBytes(line));
        m_pack->beginFrame(line);
        if (m_files->writes(framefile::kRaw)) {
            quota().take(raw.size());
            m_pack->add(pack::Element::raw, {reinterpret_cast<const uint8_t*>(raw.data()), raw.size()});
        }
        packElements(raw);
        if (m_files->writes(framefile::kThumbnail)) packThumbnails(raw);
    } catch (const pack::PackError& error) {
        reportFailure(error.what(), ErrorClass::output);
        return false;
    }
    if (progressCallback()) progressCallback()->onFrameWritten();
    return true;
}

// A frame that cannot be coded lacks its stream in a pack as well; one that cannot be written fails.
void CVintakProcess::packElements(CVintakRawImage& raw) {
    std::optional<pack::ElementStream> rest, first, preview;
    if (m_files->writes(framefile::kRest)) rest.emplace(*m_pack, pack::Element::rest);
    if (m_files->writes(framefile::kFirst)) first.emplace(*m_pack, pack::Element::head);
    if (m_files->writes(framefile::kPreview)) preview.emplace(*m_pack, pack::Element::preview);
    const auto fileOf = [](const auto& stream) { return stream ? stream->get() : nullptr; };
    const bool written =
        raw.createAndWriteCompressedStreamElements(fileOf(rest), fileOf(first), fileOf(preview));
    for (auto* stream : {&preview, &first, &rest})
        if (*stream) (*stream)->close(written);
}

void CVintakProcess::packThumbnails(CVintakRawImage& raw) {
    std::optional<pack::ElementStream> pixels;
    if (m_files->writes(framefile::kThumbnailRaw)) pixels.emplace(*m_pack, pack::Element::thumbnailPixels);
    pack::ElementStream compressed(*m_pack, pack::Element::thumbnail);
    const bool written = raw.createAndWriteThumbnail(pixels ? pixels->get() : nullptr, compressed.get());
    if (pixels) pixels->close(written);
    compressed.close(written);
    if (!written)
        throw pack::PackError("The thumbnail of frame " + std::to_string(frameNumber()) +
                              " cannot be written");
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
