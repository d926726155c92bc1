#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstdint>
#include <span>

#include "imgproc/extracteddata.h"

/// What an encapsulated document is.
enum DOCUMENT_TYPE {
    DOCUMENT_UNKNOWN = 0,
    DOCUMENT_PDF = 1,
};

/// The document that an object encapsulates, (0042,0011), without its padding: `size()` bytes at `data()`.
class CEncapsulatedDocument : public CExtractedData {
public:
    CEncapsulatedDocument(CImageProcess* process, CImageMemory* memory, DOCUMENT_TYPE type,
                          unsigned int size);

    /// Gets the buffer of the announced size; false when there is none to be had.
    bool init() override;

    /// 0 for a document that has a buffer and is of a known type, else 1.
    int postProcess() override;

    /// Copies the whole document; anything but exactly the announced size is ignored.
    void addContent(unsigned char* data, unsigned int size);

    DOCUMENT_TYPE type() const { return m_type; }

private:
    DOCUMENT_TYPE m_type;
};

/// Whether the document of a data set is a PDF, by its SOP class or else its MIME type (0042,0012).
bool isEncapsulatedPdf(DcmItem& dataset);

/// The bytes of Encapsulated Document (0042,0011) without the zero that pads an odd length; empty when there
/// are none or they cannot be read. They belong to the element.
std::span<uint8_t> documentBytes(DcmElement& element);
