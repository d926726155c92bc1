#include "imgproc/encapsulateddocument.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <cstring>

#include "imgproc/elementvalues.h"

namespace {

constexpr int kMemoryKind = 1;

}  // namespace

CEncapsulatedDocument::CEncapsulatedDocument(CImageProcess* process, CImageMemory* memory, DOCUMENT_TYPE type,
                                             unsigned int size)
    : CExtractedData(process, memory, kMemoryKind), m_type(type) {
    m_size = size;
}

bool CEncapsulatedDocument::init() {
    if (m_data == nullptr) m_data = m_memory->allocate(m_size, m_kind);
    return m_data != nullptr;
}

int CEncapsulatedDocument::postProcess() {
    return m_data == nullptr || m_type == DOCUMENT_UNKNOWN ? 1 : 0;
}

void CEncapsulatedDocument::addContent(unsigned char* data, unsigned int size) {
    if (m_data != nullptr && data != nullptr && size == m_size) std::memcpy(m_data, data, size);
}

bool isEncapsulatedPdf(DcmItem& dataset) {
    if (const auto sopClass = textOf(dataset, DCM_SOPClassUID))
        return *sopClass == UID_EncapsulatedPDFStorage;
    return textOf(dataset, DCM_MIMETypeOfEncapsulatedDocument) == "application/pdf";
}

std::span<uint8_t> documentBytes(DcmElement& element) {
    const std::span<uint8_t> bytes = valueBytes(element);
    const bool padded = !bytes.empty() && bytes.size() % 2 == 0 && bytes.back() == 0;
    return padded ? bytes.first(bytes.size() - 1) : bytes;
}
