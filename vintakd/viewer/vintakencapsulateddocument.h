#pragma once

#include <cstdio>

#include "imgproc/encapsulateddocument.h"

class CVintakProcess;

/// A document on its way into the viewer's document file.
class CVintakEncapsulatedDocument : public CEncapsulatedDocument {
public:
    CVintakEncapsulatedDocument(CVintakProcess* process, CImageMemory* memory, DOCUMENT_TYPE type,
                                unsigned int size);

    /// Writes the payload, no header; false unless all bytes were taken.
    bool writeDocumentFile(std::FILE* file);
};
