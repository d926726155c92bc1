#include "imgproc/encapsulateddocument.h"

#include <cstring>

#include "imgproc/imageprocess.h"

namespace {

constexpr int s_memoryKind = 1;

}  // namespace

CEncapsulatedDocument::CEncapsulatedDocument(CImageProcess* process, DOCUMENT_TYPE type, unsigned int size)
    : CExtractedData(process, s_memoryKind), m_type(type) {
    m_size = size;
}

bool CEncapsulatedDocument::init() {
    if (m_data == nullptr) m_data = m_process->memory()->allocate(m_size, m_kind);
    return m_data != nullptr;
}

int CEncapsulatedDocument::postProcess() {
    return m_data == nullptr || m_type == DOCUMENT_UNKNOWN ? 1 : 0;
}

void CEncapsulatedDocument::addContent(unsigned char* data, unsigned int size) {
    if (m_data != nullptr && data != nullptr && size == m_size) std::memcpy(m_data, data, size);
}
