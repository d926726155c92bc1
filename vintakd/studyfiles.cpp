// What extracted items other than frames become: documents, and the side files of content objects that tell
// the viewer which results of a study are obsolete.
#include <cstdarg>

#include "imgproc/pbrcontent.h"
#include "vintakd/vintakencapsulateddocument.h"
#include "vintakd/vintakprocess.h"
#include "vintakd/vintakrawimage.h"

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

bool printTo(std::FILE* file, const char* format, ...) __attribute__((format(printf, 2, 3)));

bool printTo(std::FILE* file, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(file, format, arguments);
    va_end(arguments);
    return written >= 0;
}

/// One numbered line for each record and one with their count; stops at the first line that fails.
bool printRecords(std::FILE* file, const char* name,
                  const std::vector<std::unique_ptr<InvalidationRecord>>& records) {
    unsigned int count = 0;
    for (const auto& record : records) {
        if (!record) continue;
        if (!printTo(file, "%s_%u=\"%s %s %s\"\n", name, ++count, record->uid.c_str(),
                     textOf(record->date).c_str(), textOf(record->time).c_str()))
            return false;
    }
    return count == 0 || printTo(file, "CNT_%s=\"%u\"\n", name, count);
}

bool printFiles(std::FILE* file, const std::vector<std::string>& names) {
    if (names.empty()) return true;
    if (!printTo(file, "FILES=\"")) return false;
    for (const std::string& name : names)
        if (!printTo(file, "%s ", name.c_str())) return false;
    return printTo(file, "\"\n");
}

bool printPartialContent(std::FILE* file, const CPbRContent& content) {
    bool result = true;
    if (content.date().isValid()) {
        result = printTo(file, "INVALIDATE_DATE=\"%s\"\n", textOf(content.date()).c_str());
        result = printTo(file, "INVALIDATE_TIME=\"%s\"\n", textOf(content.time()).c_str()) && result;
    }
    // A group that fails does not keep the next one from being tried.
    result = printRecords(file, "SERIES", content.series()) && result;
    result = printRecords(file, "OBJINV", content.objects()) && result;
    return printFiles(file, content.files()) && result;
}

}  // namespace

CVintakEncapsulatedDocument::CVintakEncapsulatedDocument(CVintakProcess* process, DOCUMENT_TYPE type,
                                                         unsigned int size)
    : CEncapsulatedDocument(process, type, size) {}

bool CVintakEncapsulatedDocument::writeDocumentFile(std::FILE* file) {
    return size() == 0 || std::fwrite(data(), 1, size(), file) == size();
}

CEncapsulatedDocument* CVintakProcess::createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) {
    return new CVintakEncapsulatedDocument(this, type, size);
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
    if (m_noCached) return true;
    OutputFile file(*this);
    if (!file.open(m_cachePrefix + (document->type() == DOCUMENT_PDF ? ".pdf" : "."))) return false;
    const bool written = document->writeDocumentFile(file.get());
    return file.close() && written;
}

bool CVintakProcess::writeObsInfo(CPbRContent* content) {
    if (content->contentKind() == PbRKind::None) return true;
    OutputFile file(*this);
    if (!file.open(m_outputPrefix + ".obsinfo")) return false;
    const bool written = content->contentKind() == PbRKind::Study ? printTo(file.get(), "WHOLE=\"true\"\n")
                                                                  : printPartialContent(file.get(), *content);
    return file.close() && written;
}

bool CVintakProcess::writeFingerPrint(CPbRContent* content) {
    OutputFile file(*this);
    if (!file.open(m_outputPrefix + ".fingerprint")) return false;
    const std::string& text = content->fingerprint();
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    return file.close() && written;
}
