#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <cstdint>
#include <memory>
#include <span>

#include "imgproc/imageprocess.h"
#include "imgproc/valuebytes.h"
#include "imgproc/valuetext.h"

// Encapsulated documents on their way out of the data set.

namespace {

bool isPdf(DcmItem& item) {
    if (const auto sopClass = textOf(item, DCM_SOPClassUID)) return *sopClass == UID_EncapsulatedPDFStorage;
    return textOf(item, DCM_MIMETypeOfEncapsulatedDocument) == "application/pdf";
}

}  // namespace

int CImageProcess::processEncapsulatedDocument(DcmElement* element) {
    if (element == nullptr || m_dataset == nullptr || !isPdf(*m_dataset)) return 0;
    const std::span<std::uint8_t> bytes = valueBytes(*element);
    if (bytes.empty()) {
        reportFailure("the encapsulated document is empty or cannot be read");
        return 1;
    }
    // The element's length is even; a document of odd length was padded with a zero.
    auto length = static_cast<unsigned int>(bytes.size());
    if (length % 2 == 0 && bytes.back() == 0) --length;
    const std::unique_ptr<CEncapsulatedDocument> document(createEncapsulatedDocument(DOCUMENT_PDF, length));
    if (document == nullptr || !document->init()) {
        reportFailure("no memory for the encapsulated document");
        return 1;
    }
    document->addContent(bytes.data(), length);
    if (postProcess(document.get())) return 0;
    reportFailure("the encapsulated document cannot be completed or written");
    return 1;
}

void CImageProcess::fTag2DCM_EncapsulatedDocument(IDicomTagParser2* parser) {
    auto& process = *static_cast<CImageProcess*>(parser);
    process.m_itemResult += process.processEncapsulatedDocument(process.currentElement());
    parser->removeElement();
}
