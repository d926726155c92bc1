#pragma once

#include <cstdio>

#include "imgproc/encapsulateddocument.h"

/// A document on its way into the viewer's document file.
class CVintakEncapsulatedDocument : public CEncapsulatedDocument {
public:
    using CEncapsulatedDocument::CEncapsulatedDocument;

    /// Writes the payload, no header; false unless all bytes were taken.
    bool writeDocumentFile(std::FILE* file) {
        return size() == 0 || std::fwrite(data(), 1, size(), file) == size();
    }
};
