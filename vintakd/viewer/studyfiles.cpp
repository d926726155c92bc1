// What extracted items other than frames become: documents, and the side files of content objects that tell
// the viewer which results of a study are obsolete.
#include "hsutils/Utils.h"
#include "imgproc/pbrcontent.h"
#include "vintakd/viewer/vintakencapsulateddocument.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

namespace {

std::string textOf(const OFDate& date) {
    OFString text;
    return date.getISOFormattedDate(text, false) ? std::string(text.data(), text.size()) : std::string();
}

std::string textOf(const OFTime& time) {
    OFString text;
    return time.getISOFormattedTime(text, true, false, false, false) ? std::string(text.data(), text.size())
                                                                     : std::string();
}

std::string line(const std::string& name, const std::string& value) {
    return name + "=\"" + value + "\"\n";
}

/// One numbered line for each record and one with their count.
std::string linesOf(const std::string& name,
                    const std::vector<std::unique_ptr<InvalidationRecord>>& records) {
    std::string text;
    unsigned int count = 0;
    for (const auto& record : records) {
        if (!record) continue;
        text += line(name + "_" + std::to_string(++count),
                     printable(record->uid) + ' ' + textOf(record->date) + ' ' + textOf(record->time));
    }
    return count == 0 ? text : text + line("CNT_" + name, std::to_string(count));
}

std::string partialContent(const CPbRContent& content) {
    std::string text;
    if (content.date().isValid()) {
        text += line("INVALIDATE_DATE", textOf(content.date()));
        text += line("INVALIDATE_TIME", textOf(content.time()));
    }
    text += linesOf("SERIES", content.series()) + linesOf("OBJINV", content.objects());
    if (content.files().empty()) return text;
    std::string names;
    for (const std::string& name : content.files())
        names += printable(name) + ' ';
    return text + line("FILES", names);
}

}  // namespace

CVintakEncapsulatedDocument::CVintakEncapsulatedDocument(CVintakProcess* process, CImageMemory* memory,
                                                         DOCUMENT_TYPE type, unsigned int size)
    : CEncapsulatedDocument(process, memory, type, size) {}

bool CVintakEncapsulatedDocument::writeDocumentFile(std::FILE* file) {
    return size() == 0 || std::fwrite(data(), 1, size(), file) == size();
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
    quota().take(document->size());
    OutputFile file(*this);
    if (!file.open(cachePrefix() + (document->type() == DOCUMENT_PDF ? ".pdf" : "."))) return false;
    const bool written = document->writeDocumentFile(file.get());
    return file.close() && written;
}

bool CVintakProcess::writeObsInfo(CPbRContent* content) {
    if (content->contentKind() == PbRKind::None) return true;
    const bool whole = content->contentKind() == PbRKind::Study;
    return writeText(".obsinfo", whole ? line("WHOLE", "true") : partialContent(*content));
}

bool CVintakProcess::writeFingerPrint(CPbRContent* content) {
    return writeText(".fingerprint", content->fingerprint());
}

bool CVintakProcess::writeText(const std::string& suffix, const std::string& text) {
    quota().take(text.size());
    OutputFile file(*this);
    if (!file.open(outputPrefix() + suffix)) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return file.close() && written;
}
