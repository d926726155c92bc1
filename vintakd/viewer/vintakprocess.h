#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "imgproc/imageprocess.h"
#include "vintakd/viewer/conversionfiles.h"
#include "vintakd/viewer/framegeometry.h"
#include "vintakd/viewer/frameinfo.h"
#include "vintakd/viewer/frameinfolist.h"
#include "vintakd/viewer/includelist.h"
#include "vintakd/viewer/outputfile.h"
#include "vintakd/viewer/vintakmemory.h"

namespace pack {
class PackWriter;
}  // namespace pack
class CodecRegistry;
class PartFactsWriter;
class CVintakEncapsulatedDocument;
class CVintakRawImage;

/// Holds the memory of a CVintakProcess as a base, so that it outlives the engine that borrows it.
struct VintakMemoryOwner {
    CVintakMemory frameMemory;
};

/// The image process of the viewer: collects the geometry of the frames from classic and enhanced objects,
/// keeps the private elements that the include files name, and writes the viewer's files. Files are named
/// prefix + "_" + frame number + suffix for a frame and prefix + suffix for the object.
///
/// The codecs are registered with the toolkit while a process runs, so that there may be one at a time.
class CVintakProcess : private VintakMemoryOwner, public CImageProcess {
public:
    /// Borrows the data set. `outputPrefix` is the path prefix of the files in the output location,
    /// `cachePrefix` of those in the cache location (null: the same). `specificFrame` is the frame to
    /// convert, counted from 1, 0 for all; a single frame writes no descriptor.
    CVintakProcess(DcmDataset* dataset, bool verbose, bool dumponly, bool escapeNewLines,
                   const char* outputPrefix, const char* cachePrefix, int specificFrame);
    ~CVintakProcess() override;

    /// Writes under the names and within the quota of `files` (borrowed) instead of those of the constructor;
    /// the options below are then kept there. Beyond the quota process() throws std::runtime_error.
    void writeThrough(ConversionFiles& files);

    // Options, to be set before process().
    void setNoCached(bool noCached) { m_files->noCached = noCached; }
    void setNeedOptimize(bool needOptimize) { m_needOptimize = needOptimize; }
    void setWriteMask(uint32_t mask) { m_files->mask = mask; }
    void setStreamParameter(double parameter) { m_streamParameter = parameter; }
    /// Keeps these private elements instead of those that the include files name.
    void setIncludeList(IncludeList list) { m_includeList = std::move(list); }

    /// Nothing goes into the cache location, and no document is written.
    bool noCached() const { return m_files->noCached; }
    /// 16-bit frames that need 8 bits are packed into bytes.
    bool needOptimize() const { return m_needOptimize; }
    uint32_t writeMask() const { return m_files->mask; }
    double streamParameter() const { return m_streamParameter; }
    const std::string& outputPrefix() const { return m_files->outputPrefix; }
    const std::string& cachePrefix() const { return m_files->cachePrefix; }
    /// (0020,0052)
    const std::string& frameOfReferenceUID() const { return m_frameOfReferenceUID; }
    /// What all frames share, and an entry for each frame (none when (0028,0008) is absent).
    const CFrameInfo& sharedFrame() const { return m_sharedFrame; }
    const FrameInfoList& frames() const { return m_frames; }
    /// The attributes of a frame, counted from 1.
    FrameAttributes frameAttributes(int frame) const;
    /// The number of the frame in work, as its files are named.
    int frameNumber() const { return specificFrame() > 0 ? specificFrame() : imagesStarted(); }
    OutputQuota& quota() const { return m_files->quota(); }

    /// Adds the viewer's handlers to the table.
    void initFunction2();  // NOLINT(bugprone-virtual-near-miss): its name; it does not override
    CRawImage* createRawImage() override;
    CEncapsulatedDocument* createEncapsulatedDocument(DOCUMENT_TYPE type, unsigned int size) override;
    /// Completes an extracted item and writes its files; false when it cannot be completed or written.
    bool postProcess(CExtractedData* item) override;
    /// Registers the codecs, opens the descriptor, reads the include files where no list was set.
    bool initProcess() override;
    bool finalizeProcess() override;
    /// To be called once process() has succeeded: where the mask asks for a pack, it has its index from here
    /// on, and a part can be put together with the others. Without this call nothing stays of either. Throws
    /// pack::PackError.
    void finishPack();
    /// Puts the parts together where the conversion's files say so.
    std::optional<int> takeImages(std::string& colorModel) override;
    bool isIncluded(const DcmTag& tag) override;
    void registerCodecs();
    void deregisterCodecs();

    /// Writes a frame's descriptor line, pixel file, stream elements and thumbnails, those that the options
    /// ask for; false when one of them cannot be created or written. A write error of the stream elements
    /// does not count: a viewer does without them.
    bool writeImageFiles(CVintakRawImage* raw);
    /// Writes the payload to cache prefix + "." + extension ("pdf" or none).
    bool writeDocumentFiles(CVintakEncapsulatedDocument* document);
    /// Writes what a content object makes obsolete to output prefix + ".obsinfo"; no file for content of no
    /// kind.
    bool writeObsInfo(CPbRContent* content);
    /// Writes the content's fingerprint text to output prefix + ".fingerprint".
    bool writeFingerPrint(CPbRContent* content);

    // Handlers; the parser is a CVintakProcess.
    static void fVintakTag2DCM_SliceThickness(IDicomTagParser2* parser);
    static void fVintakTag2DCM_SpacingBetweenSlices(IDicomTagParser2* parser);
    static void fVintakTag2DCM_PatientOrientation(IDicomTagParser2* parser);
    static void fVintakTag2DCM_ImagePositionPatient(IDicomTagParser2* parser);
    static void fVintakTag2DCM_ImageOrientationPatient(IDicomTagParser2* parser);
    static void fVintakTag2DCM_FrameOfReferenceUID(IDicomTagParser2* parser);
    static void fVintakTag2DCM_NumberOfFrames(IDicomTagParser2* parser);
    static void fVintakTag2DCM_SequenceOfUltrasoundRegions(IDicomTagParser2* parser);
    static void fVintakTag2DCM_PixelSpacing(IDicomTagParser2* parser);
    static void fVintakTag2DCM_ImagerPixelSpacing(IDicomTagParser2* parser);
    static void fVintakTag2DCM_NominalScannedPixelSpacing(IDicomTagParser2* parser);
    static void fVintakTag2DCM_WindowCenter(IDicomTagParser2* parser);
    static void fVintakTag2DCM_WindowWidth(IDicomTagParser2* parser);
    static void fVintakTag2DCM_RescaleIntercept(IDicomTagParser2* parser);
    static void fVintakTag2DCM_RescaleSlope(IDicomTagParser2* parser);
    static void fVintakTag2DCM_DetectorInformationSequence(IDicomTagParser2* parser);
    static void fVintakTag2DCM_SharedFunctionalGroupsSequence(IDicomTagParser2* parser);
    static void fVintakTag2DCM_PerFrameFunctionalGroupsSequence(IDicomTagParser2* parser);

private:
    /// Opens a frame's file when it is wanted; false when that fails.
    bool openWanted(OutputFile& file, const FrameFile& kind);
    /// Begins the pack under the name of the object's files; false (and reported) when that fails.
    bool beginPack();
    /// Begins the record of a part likewise.
    bool beginPart();
    bool recordImage(CVintakRawImage& raw);
    void takePart(uint32_t number, FramePart& before);
    /// What writeImageFiles() writes, into the pack.
    bool packImage(CVintakRawImage& raw);
    void packElements(CVintakRawImage& raw);
    void packThumbnails(CVintakRawImage& raw);
    bool writePixels(CVintakRawImage& raw);
    bool writeStreamElements(CVintakRawImage& raw);
    /// Writes `text` to output prefix + `suffix`.
    bool writeText(const std::string& suffix, const std::string& text);

    std::unique_ptr<CodecRegistry> m_codecRegistry;
    OutputFile m_descFile{*this};
    std::unique_ptr<pack::PackWriter> m_pack;
    std::unique_ptr<PartFactsWriter> m_facts;  ///< of a part
    OutputQuota m_noQuota;
    ConversionFiles m_ownFiles;
    ConversionFiles* m_files = &m_ownFiles;
    bool m_needOptimize = true;
    double m_streamParameter = 0.01;
    std::optional<IncludeList> m_includeList;
    std::string m_frameOfReferenceUID;
    CFrameInfo m_sharedFrame;
    FrameInfoList m_frames;
};
