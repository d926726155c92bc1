#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "imgproc/dicomparser.h"
#include "imgproc/encapsulateddocument.h"
#include "imgproc/extracteddata.h"
#include "imgproc/histogram.h"
#include "imgproc/overlay.h"
#include "imgproc/pixelkinds.h"

class CPbRContent;
class CRawImage;
class FrameReader;

/// Told about the progress of a conversion, on the thread that runs it.
class IImageProcessProgress {
public:
    virtual ~IImageProcessProgress() = default;
    virtual void onImageConverted() = 0;
    /// A frame's files have been written.
    virtual void onFrameWritten() = 0;
};

/// The extraction engine: walks a loaded data set once, collects the image attributes, decodes the pixel data
/// frame by frame into raw images, collects overlays, palettes and documents, prints the tag dump on request
/// and writes what it learned into the data set's private block. What becomes of images and documents is the
/// subclass's business. Single use: one data set, one process() call, one thread.
class CImageProcess : public CDicomTagParser2, public SDicomTagGroupList {
public:
    /// Borrows the data set and the memory for its whole life.
    /// `specificFrame` is the frame to convert, counted from 1; 0 converts all.
    CImageProcess(DcmDataset* dataset, CImageMemory* memory, bool verbose, bool dumponly, bool escapeNewLines,
                  int specificFrame);
    ~CImageProcess() override;

    /// Runs the whole extraction: 0 on success, otherwise the number of failures; failureCause() then says
    /// why.
    int process();

    /// One tag walk over `item`; the number of failures.
    int processDataItem(DcmItem* item);

    /// `callback` is borrowed; null for none.
    void setProgressCallback(IImageProcessProgress* callback) { m_progress = callback; }
    IImageProcessProgress* progressCallback() const { return m_progress; }

    /// Where the tag dump goes (borrowed; standard output by default).
    void setOutputStream(std::ostream* stream) { m_output = stream; }
    std::ostream* outputStream() const { return m_output; }

    /// Keeps `cause` as the reason of the failure unless one is known already: the first one explains the
    /// rest.
    void reportFailure(std::string cause);
    const std::string& failureCause() const { return m_failureCause; }

    /// Keeps `text`, once, for whoever must not take the results for all that the object holds.
    void reportWarning(const std::string& text);
    const std::vector<std::string>& warnings() const { return m_warnings; }

    // Operations of the walk and the seams of subclasses.
    void InitPrivateData() override {}
    /// Registers the handlers of this class; none when only a dump is wanted.
    void initFunction() override;
    /// A raw image for the current frame; the process takes it over.
    virtual CRawImage* createRawImage() = 0;
    /// A document for `size` bytes; the caller takes it over.
    virtual CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) = 0;
    virtual CPbRContent* createPbRContent();
    /// Completes extracted data; false is a failure that counts.
    virtual bool postProcess(CExtractedData* data);
    virtual bool initProcess();
    virtual bool finalizeProcess();
    /// Whether a private element stays in the data set.
    virtual bool isIncluded(const DcmTag& tag);
    /// See decoded samples before the raw image gets them, and may change them: 16-bit monochrome samples,
    /// colour samples reduced to 8 bits in 16-bit cells, 8-bit samples.
    virtual void adjustWords(unsigned short* samples, unsigned int count);
    virtual void adjustBytes(unsigned short* samples, unsigned int count);
    virtual void adjustBytes(unsigned char* samples, unsigned int count);

    // Image attributes.

    /// `element` is remembered and later brought in line with the decoded data; null when the value describes
    /// decoded data.
    void setPhotometricInterpretation(std::string& value, DcmElement* element);
    void setSamplesPerPixel(unsigned short value, DcmElement* element);
    /// True for the capture device that declares MONOCHROME1 for images that must not be inverted.
    static bool checkSCDevice(const std::string& modelName, const std::string& softwareVersions);

    DcmDataset* dataset() const { return m_dataset; }
    CImageMemory* memory() const { return m_memory; }
    CHistogram& histogram() { return m_histogram; }
    uint16_t columns() const { return m_columns; }
    uint16_t rows() const { return m_rows; }
    uint16_t bitsAllocated() const { return m_bitsAllocated; }
    uint16_t bitsStored() const { return m_bitsStored; }
    uint16_t highBit() const { return m_highBit; }
    uint16_t pixelRepresentation() const { return m_pixelRepresentation; }
    uint16_t planarConfiguration() const { return m_planarConfiguration; }
    uint16_t samplesPerPixel() const { return m_samplesPerPixel; }
    uint16_t numberOfFrames() const { return m_numberOfFrames; }
    double rescaleIntercept() const { return m_rescaleIntercept; }
    double rescaleSlope() const { return m_rescaleSlope; }
    double windowCenter() const { return m_windowCenter; }
    double windowWidth() const { return m_windowWidth; }
    /// Millimetres: [0] between rows, [1] between columns (0028,0030).
    const std::array<double, 2>& pixelSpacing() const { return m_pixelSpacing; }
    const std::string& modality() const { return m_modality; }
    PhotometricKind photometricKind() const { return m_photometricKind; }
    PixelKind pixelKind() const { return m_pixelKind; }
    /// MONOCHROME1: samples are turned over, small values bright.
    bool invertMonochrome() const { return m_invertMonochrome; }
    COverlayArray& overlays() { return m_overlays; }
    /// Images started so far; while a frame is being processed its number, counted from 1 (for a specific
    /// frame 1).
    int imagesStarted() const { return m_imagesStarted; }
    int specificFrame() const { return m_specificFrame; }
    bool verbose() const { return m_verbose; }
    bool dumpOnly() const { return m_dumpOnly; }
    bool escapeNewLinesWanted() const { return m_escapeNewLines; }

    // What the raw image reports, once per frame (the windows ten times).
    void setPBMinValue(int value) { m_minimumList.push_back(value); }
    void setPBMaxValue(int value) { m_maximumList.push_back(value); }
    void setPBPrefWindowWidth(int familyA, int familyB);
    void setPBPrefWindowCenter(int familyA, int familyB);
    void setActualBitsUsed(int bits) { m_actualBitsList.push_back(static_cast<uint16_t>(bits)); }

    // Pixel data.

    /// Turns the pixel data element into raw images; 0 is success. The VR plays no part.
    int processImageElem(DcmElement* element, const DcmEVR& vr);
    /// Unpacks the frame buffer into raw images; 0 is success.
    int processImageBytes();
    /// Frame boundaries. imageStart() is false when there is no raw image to fill.
    bool imageStart();
    void imageDone();
    /// Reduce samples to 8 bits in place.
    void makeBytes(unsigned short* samples, unsigned int count) const;
    void makeBytes(unsigned char* samples, unsigned int count) const;
    /// Hand samples to the raw image as the photometric kind asks for.
    void addSamples(unsigned short* samples, unsigned int count);
    void addSamples(unsigned char* samples, unsigned int count);

    // Overlays, palettes, documents, content objects.
    bool checkAndSetCurrentOverLay();
    /// Moves overlay bits out of the frame buffer and clears what is not stored; 1 for unusable bits
    /// allocated.
    int getAndRemoveOverlays();
    /// `channel` is 0 red, 1 green, 2 blue.
    void readPaletteDesc(DcmElement* element, int channel);
    void readPaletteData(DcmElement* element, int channel);
    /// Makes sure that all three tables are there, from the segmented data where plain data is missing; false
    /// when there is nothing to be had.
    bool preparePalettes();
    int processEncapsulatedDocument(DcmElement* element);
    int processPbRContent();

    /// Writes what was learned about the frames into the private block.
    void addReferenceValues();

    // Tag dump.
    void printElement(DcmElement* element, int level);
    void printSequence(DcmSequenceOfItems* sequence, int level);
    void printItem(DcmItem* item, int level);
    /// A copy of `text` with CR, LF and backslash as two characters each, to be deleted as an array; null
    /// when there is nothing to escape.
    static char* escapeNewLines(const char* text);

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
    struct WindowList {
        std::vector<int32_t> familyA;
        std::vector<int32_t> familyB;
    };

    DcmDataset* m_dataset;
    CImageMemory* m_memory;
    IImageProcessProgress* m_progress = nullptr;
    std::ostream* m_output;
    uint64_t m_dumpedBytes = 0;  ///< values written to m_output
    std::string m_failureCause;
    std::vector<std::string> m_warnings;

    bool m_verbose;
    bool m_dumpOnly;
    bool m_escapeNewLines;
    int m_specificFrame;

    // Learned about the frames.
    std::vector<uint16_t> m_actualBitsList;
    std::vector<int32_t> m_minimumList;
    std::vector<int32_t> m_maximumList;
    WindowList m_preferredWidths;
    WindowList m_preferredCenters;

    // Attributes of the data set.
    uint16_t m_columns = 0;
    uint16_t m_rows = 0;
    uint16_t m_bitsAllocated = 0;
    uint16_t m_bitsStored = 0;
    uint16_t m_highBit = 0;
    uint16_t m_pixelRepresentation = 0;
    uint16_t m_planarConfiguration = 0;
    uint16_t m_samplesPerPixel = 1;
    uint16_t m_numberOfFrames = 1;
    DcmElement* m_samplesPerPixelElement = nullptr;
    DcmElement* m_photometricElement = nullptr;
    double m_rescaleIntercept = 0.0;
    double m_rescaleSlope = 1.0;
    double m_windowCenter = 0.0;
    double m_windowWidth = 0.0;
    std::array<double, 2> m_pixelSpacing{};
    std::string m_modality;
    std::string m_scDeviceModelName;
    std::string m_scDeviceSoftwareVersions;
    PhotometricKind m_photometricKind = PhotometricKind::Monochrome;
    PixelKind m_pixelKind = PixelKind::Mono8;
    bool m_planarConfigurationPresent = false;
    bool m_invertMonochrome = false;

    // Palettes: red, green, blue.
    std::array<std::vector<uint16_t>, 3> m_paletteTables;
    std::array<uint16_t, 3> m_paletteEntryCounts{};
    std::array<uint16_t, 3> m_paletteEntryBits{};

    // Overlays; bit n of the mask: an overlay lives in bit n of the samples.
    COverlayArray m_overlays;
    int m_currentOverlaySlot = -1;
    uint16_t m_currentOverlayGroup = 0;
    uint16_t m_imageOverlayMask = 0;

    // The walk and the frame in progress.
    bool m_pixelDataSeen = false;
    int m_itemResult = 0;
    int m_imagesStarted = 0;
    std::unique_ptr<CRawImage> m_rawImage;
    CHistogram m_histogram;
    std::vector<uint8_t> m_frameBuffer;  ///< one uncompressed frame
    uint32_t m_frameByteCount = 0;       ///< bytes of it that hold samples
    uint32_t m_frameSampleCount = 0;     ///< samples that make one image
    uint32_t m_unpackSampleCount = 0;    ///< samples that the unpacking loops produce for one image

private:
    bool checkPixelAttributes();
    bool framesFit(uint64_t samples);
    void prepareEmbeddedOverlays();
    bool allocateFrameBuffer(FrameReader& frames);
    std::string decodingFailure(const OFCondition& condition) const;
    void repairPlanarConfiguration();
    int processFrames(FrameReader& frames, DcmElement& element, std::string& colorModel);
    void warnOfAttributes();
    int judgeFrames(const FrameReader& frames, uint32_t images, const std::string& missing);
    bool describeDecodedFrame(DcmElement& element, std::string& colorModel);
    void restateDecodedAttributes(const std::string& colorModel);

    template <typename Sample>
    int unpackSamples(uint16_t keepMask);
    template <typename Sample>
    void takeOverlayBits(const Sample* samples, size_t count);
    void expandPalette(int channel);
    int processWholeWords();
    int processWholeBytes();
    void addPaletteSamples(const unsigned short* samples, unsigned int count);

    void putWindows();
    bool storeOverlays();
    void printLine(DcmElement* element, int level);
    void printTag(DcmObject* object, int level);
};
