#pragma once

#include <algorithm>

#include "imgproc/encapsulateddocument.h"
#include "imgproc/imageprocess.h"
#include "imgproc/pbrcontent.h"
#include "imgproc/rawimage.h"
#include "tests/shared/testobject.h"

/// Buffers from the heap, filled with rubbish so that bytes nobody wrote show.
class HeapMemory : public CImageMemory {
public:
    char* allocate(unsigned int size, int) override {
        auto* buffer = new char[size];
        std::fill(buffer, buffer + size, '\xA5');
        return buffer;
    }
    void release(char* buffer, unsigned int, int) override { delete[] buffer; }
    char* chunk(char* buffer, unsigned int, unsigned int, int) override { return buffer; }
};

/// A finished frame as the engine hands it over.
struct CapturedFrame {
    Bytes bytes;
    int bytesPerSample;
    std::string layout;
    double intercept;
    double slope;
    double windowCenter;
    double windowWidth;
    int bitsUsed;

    /// The bytes taken as 16-bit samples.
    Words words() const {
        Words result;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            result.push_back(static_cast<uint16_t>(bytes[i] | bytes[i + 1] << 8));
        return result;
    }
};

/// Runs the engine over a data set and keeps what comes out.
class CapturingProcess : public CImageProcess {
public:
    struct Listing {
        bool list = false, listOnly = false, escape = false;
    };
    explicit CapturingProcess(DcmDataset& dataset, int specificFrame = 0)
        : CapturingProcess(dataset, specificFrame, Listing()) {}
    CapturingProcess(DcmDataset& dataset, int specificFrame, Listing listing)
        : CImageProcess(&dataset, &heap(), listing.list, listing.listOnly, listing.escape, specificFrame) {}

    CRawImage* createRawImage() override { return new CRawImage(this, frameContext(), imagesStarted()); }
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) override {
        return new CEncapsulatedDocument(this, memory(), type, size);
    }
    bool postProcess(CExtractedData* data) override {
        if (!CImageProcess::postProcess(data)) return false;
        const auto* begin = reinterpret_cast<const uint8_t*>(data->data());
        if (auto* image = dynamic_cast<CRawImage*>(data)) {
            m_frames.push_back({{begin, begin + image->size()},
                                image->bytesPerSample(),
                                image->layout(),
                                image->rescaleIntercept(),
                                image->rescaleSlope(),
                                image->windowCenter(),
                                image->windowWidth(),
                                image->bitsUsed()});
        } else if (dynamic_cast<CEncapsulatedDocument*>(data) != nullptr) {
            m_documents.emplace_back(begin, begin + data->size());
        }
        return true;
    }

    const std::vector<CapturedFrame>& frames() const { return m_frames; }
    const std::vector<Bytes>& documents() const { return m_documents; }

private:
    static HeapMemory& heap() {
        static HeapMemory memory;
        return memory;
    }
    std::vector<CapturedFrame> m_frames;
    std::vector<Bytes> m_documents;
};

/// An object that was written, read back and processed, which must succeed.
class Converted : public CapturingProcess {
public:
    explicit Converted(TestObject& object, E_TransferSyntax syntax = EXS_LittleEndianExplicit)
        : CapturingProcess(object.reload(syntax)) {
        EXPECT_EQ(process(), 0) << failureCause();
    }
    /// The first frame, and its bytes or 16-bit samples.
    const CapturedFrame& frame() const { return frames().at(0); }
    const Bytes& bytes() const { return frame().bytes; }
    Words words() const { return frame().words(); }
};
