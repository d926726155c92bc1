#include "imgproc/extracteddata.h"

#include "imgproc/imageprocess.h"

CExtractedData::~CExtractedData() {
    if (m_data != nullptr) m_process->memory()->release(m_data, m_size, m_kind);
}
