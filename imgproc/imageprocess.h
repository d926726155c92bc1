#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "imgproc/complaints.h"
#include "imgproc/dicomparser.h"
#include "imgproc/encapsulateddocument.h"
#include "imgproc/extracteddata.h"
#include "imgproc/framebuffer.h"
#include "imgproc/framecontext.h"
#include "imgproc/framepart.h"
#include "imgproc/histogram.h"
#include "imgproc/imageattributes.h"
#include "imgproc/overlayplanes.h"
#include "imgproc/palettetables.h"
#include "imgproc/progress.h"
#include "imgproc/referencevalues.h"
#include "imgproc/taglisting.h"
#include "imgproc/unpack.h"

class CPbRContent;
class CRawImage;
class FrameReader;

/// The extraction engine: walks a loaded data set once, collects the image attributes, decodes the pixel data
/// frame by frame into raw images, collects overlays, palettes and documents, prints the tag dump on request
/// and writes what it learned into the data set's private block. What becomes of images and documents is the
/// subclass's business. Single use: one data set, one process() call, one thread.
class CImageProcess : public CDicomTagParser2, public SDicomTagGroupList, private SampleSink {
public:
    /// Borrows the data set and the memory. `specificFrame` is the frame to convert, from 1; 0 converts all.
    CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool verbose, bool dumponly, bool escapeNewLines,
                  int specificFrame);
    ~CImageProcess() override;

    /// Runs the whole extraction: 0 on success, otherwise the number of failures, see failureCause().
    int process();

    /// One tag walk over `item`; the number of failures.
    int processDataItem(DcmItem* item);

    /// Converts these frames alone, from 1; each has to give one image, which has its number and all of whose
    /// pixels are its own, or the conversion fails. To be called before process().
    void setPart(uint32_t first, uint32_t last);
    const FramePart& part() const { return m_part; }

    /// `callback` is borrowed; null for none.
    void setProgressCallback(IImageProcessProgress* callback) { m_progress = callback; }
    IImageProcessProgress* progressCallback() const { return m_progress; }
    /// Where the tag dump goes (borrowed; standard output by default).
    void setOutputStream(std::ostream* stream) { m_listing.setOutput(*stream); }

    /// See Complaints.
    void reportFailure(std::string cause, ErrorClass kind = ErrorClass::object) {
        m_complaints.fail(std::move(cause), kind);
    }
    void reportWarning(const std::string& text) { m_complaints.warn(text); }
    const std::string& failureCause() const { return m_complaints.cause(); }
    ErrorClass failureClass() const { return m_complaints.kind(); }
    const std::vector<std::string>& warnings() const { return m_complaints.warnings(); }

    // Operations of the walk and the seams of subclasses.
    void InitPrivateData() override {}
    /// Registers the handlers of this class; none when only a dump is wanted.
    void initFunction() override;
    /// A raw image for the current frame; the process takes it over.
    virtual CRawImage* createRawImage() = 0;
    /// A document for `size` bytes; the caller takes it over.
    virtual CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) = 0;
    virtual CPbRContent* createPbRContent();
    /// The images of the pixel data where they have been converted already: takes them (takeImage()) and
    /// their color model, returns the number of failures. Nothing where they have not, which is the rule.
    virtual std::optional<int> takeImages(std::string& colorModel);
    /// Completes extracted data; false is a failure that counts.
    virtual bool postProcess(CExtractedData* data);
    virtual bool initProcess();
    virtual bool finalizeProcess();
    /// Whether a private element stays in the data set.
    virtual bool isIncluded(const DcmTag& tag);
    /// See decoded samples before the raw image gets them, and may change them: 16-bit monochrome samples,
    /// colour samples reduced to 8 bits in 16-bit cells, 8-bit samples.
    virtual void adjustWords(unsigned short* /*samples*/, unsigned int /*count*/) {}
    virtual void adjustBytes(unsigned short* /*samples*/, unsigned int /*count*/) {}
    virtual void adjustBytes(unsigned char* /*samples*/, unsigned int /*count*/) {}

    /// `element` is remembered and later brought in line with the decoded data; null when the value describes
    /// decoded data.
    void setPhotometricInterpretation(std::string& value, DcmElement* element);
    void setSamplesPerPixel(unsigned short value, DcmElement* element);
    /// True for the capture device that declares MONOCHROME1 for images that must not be inverted.
    static bool checkSCDevice(const std::string& modelName, const std::string& softwareVersions);

    DcmDataset* dataset() const { return m_dataset; }
    CImageMemory* memory() const { return m_memory; }
    const ImageAttributes& attributes() const { return m_attributes; }  ///< as the walk has read them so far
    FrameContext frameContext();  ///< for the raw image of the frame in work
    COverlayArray& overlays() { return m_overlays.array(); }
    /// Images started so far: the number of the image in work, counted from 1 (of a specific frame 1).
    int imagesStarted() const { return m_imagesStarted; }
    int specificFrame() const { return m_specificFrame; }
    bool dumpOnly() const { return m_dumpOnly; }

    // What a raw image taught, once per frame (the windows ten times, by both families of the histogram).
    void setPBMinValue(int value) { m_reference.addMinimum(value); }
    void setPBMaxValue(int value) { m_reference.addMaximum(value); }
    void setPBPrefWindowWidth(int familyA, int familyB) { m_reference.addWindowWidth(familyA, familyB); }
    void setPBPrefWindowCenter(int familyA, int familyB) { m_reference.addWindowCenter(familyA, familyB); }
    void setActualBitsUsed(int bits) { m_reference.addActualBits(static_cast<uint16_t>(bits)); }

    /// Turns the pixel data element into raw images; 0 is success. The VR plays no part.
    int processImageElem(DcmElement* element, const DcmEVR& vr);
    /// Unpacks the frame buffer into raw images; 0 is success.
    int processImageBytes();
    int processEncapsulatedDocument(DcmElement* element);
    int processPbRContent();
    /// Writes what was learned about the frames into the private block.
    void addReferenceValues();
    /// Prints a line of the tag dump, of a sequence all lines.
    void printElement(DcmElement* element, int level) { m_listing.printElement(*element, level); }

    // Handlers; the parser is a CImageProcess.
    static void fTag2DCM_Modality(IDicomTagParser2* parser);
    static void fTag2DCM_SecondaryCaptureDeviceManufacturerModelName(IDicomTagParser2* parser);
    static void fTag2DCM_SecondaryCaptureDeviceSoftwareVersions(IDicomTagParser2* parser);
    static void fTag2DCM_SamplesPerPixel(IDicomTagParser2* parser);
    static void fTag2DCM_PhotometricInterpretation(IDicomTagParser2* parser);
    static void fTag2DCM_PlanarConfiguration(IDicomTagParser2* parser);
    static void fTag2DCM_NumberOfFrames(IDicomTagParser2* parser);
    static void fTag2DCM_Rows(IDicomTagParser2* parser);
    static void fTag2DCM_Columns(IDicomTagParser2* parser);
    static void fTag2DCM_PixelSpacing(IDicomTagParser2* parser);
    static void fTag2DCM_BitsAllocated(IDicomTagParser2* parser);
    static void fTag2DCM_BitsStored(IDicomTagParser2* parser);
    static void fTag2DCM_HighBit(IDicomTagParser2* parser);
    static void fTag2DCM_PixelRepresentation(IDicomTagParser2* parser);
    static void fTag2DCM_WindowCenter(IDicomTagParser2* parser);
    static void fTag2DCM_WindowWidth(IDicomTagParser2* parser);
    static void fTag2DCM_RescaleIntercept(IDicomTagParser2* parser);
    static void fTag2DCM_RescaleSlope(IDicomTagParser2* parser);
    static void fTag2DCM_RedPaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_GreenPaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_BluePaletteColorLookupTableDescriptor(IDicomTagParser2* parser);
    static void fTag2DCM_RedPaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_GreenPaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_BluePaletteColorLookupTableData(IDicomTagParser2* parser);
    static void fTag2DCM_EncapsulatedDocument(IDicomTagParser2* parser);
    static void fTag2DCM_NumberOfSlices(IDicomTagParser2* parser);
    static void fTag2DCM_IconImageSequence(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayRows(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayColumns(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayType(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayOrigin(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayBitsAllocated(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayBitPosition(IDicomTagParser2* parser);
    static void fTag2DCM_OverlayData(IDicomTagParser2* parser);
    static void fTag2DCM_PixelData(IDicomTagParser2* parser);
    static void fTagPIXEL_DATA_REFERENCE(IDicomTagParser2* parser);
    static bool fTagParserPreprocess(IDicomTagParser2* parser);

protected:
    /// One more image that has been converted already.
    void takeImage(const FrameFindings& findings);

    DcmDataset* m_dataset;
    CImageMemory* m_memory;
    IImageProcessProgress* m_progress = nullptr;
    TagListing m_listing;
    Complaints m_complaints;

    bool m_verbose;
    bool m_dumpOnly;
    int m_specificFrame;
    FramePart m_part;
    ImageAttributes m_attributes;
    DcmElement* m_samplesPerPixelElement = nullptr;
    DcmElement* m_photometricElement = nullptr;
    PaletteTables m_palette;
    OverlayPlanes m_overlays;
    ReferenceValues m_reference;

    // The walk and the frame in progress.
    bool m_pixelDataSeen = false;
    int m_itemResult = 0;
    int m_imagesStarted = 0;
    PixelKind m_pixelKind = PixelKind::Mono8;
    PixelFormat m_format;
    std::unique_ptr<CRawImage> m_rawImage;
    CHistogram m_histogram;
    FrameBuffer m_frameBuffer;

private:
    // What unpacking a frame brings.
    bool imageStart() override;
    void imageDone() override;
    void addSamples(unsigned short* samples, unsigned int count) override;
    void addSamples(unsigned char* samples, unsigned int count) override;
    void addPaletteSamples(const unsigned short* samples, unsigned int count);
    void takeFindings(const FrameFindings& findings);

    bool allocateFrameBuffer(FrameReader& frames);
    int processFrames(FrameReader& frames, DcmElement& element, std::string& colorModel);
    OFCondition readFrame(FrameReader& frames, uint32_t index, std::string& colorModel);
    bool describeDecodedFrame(DcmElement& element, std::string& colorModel);
    void restateDecodedAttributes(const std::string& colorModel);
};
