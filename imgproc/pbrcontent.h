#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/ofstd/ofdate.h>
#include <dcmtk/ofstd/oftime.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "imgproc/extracteddata.h"

class PBItem;

/// Results of one series or object that are obsolete from a date and time on.
struct InvalidationRecord {
    OFDate date;
    OFTime time;
    std::string uid;  ///< a Series Instance UID; for an object modality + "." + SOP Instance UID
};

/// How much of a study a content object declares obsolete.
enum class PbRKind : int32_t { None = 0, Study = 1, Partial = 2 };

/// What a PbR content object says: which earlier results of its study are obsolete, and a fingerprint. The
/// object may also carry an item of attributes that replace its own.
class CPbRContent : public CExtractedData {
public:
    /// Borrows the data set, whose attributes an override item replaces.
    CPbRContent(CImageProcess* process, DcmItem& dataset);
    ~CPbRContent() override;

    /// Copies the override item's attributes into the data set; false when one cannot be copied.
    bool init() override;

    /// Reads the content from the data set's private block. 0 is success, also for an object that declares
    /// nothing (kind None); 1 for an unknown kind, an inconsistent date and time, or a partial content that
    /// names nothing.
    int postProcess() override;

    PbRKind contentKind() const { return m_contentKind; }
    /// Date and time of the whole content; not valid when it has none.
    const OFDate& date() const { return m_date; }
    const OFTime& time() const { return m_time; }
    /// Referenced objects, each as modality + "." + SOP Instance UID.
    const std::vector<std::string>& files() const { return m_files; }
    const std::vector<std::unique_ptr<InvalidationRecord>>& series() const { return m_series; }
    const std::vector<std::unique_ptr<InvalidationRecord>>& objects() const { return m_objects; }
    /// Empty when the object has none.
    const std::string& fingerprint() const { return m_fingerprint; }

private:
    int readPartialContent(PBItem& block);
    void readFiles(PBItem& block);
    void readSeries(PBItem& block);
    void readObjects(PBItem& block);

    DcmItem& m_dataset;
    PbRKind m_contentKind = PbRKind::None;
    OFDate m_date;
    OFTime m_time;
    std::vector<std::string> m_files;
    std::string m_fingerprint;
    std::vector<std::unique_ptr<InvalidationRecord>> m_series;
    std::vector<std::unique_ptr<InvalidationRecord>> m_objects;
};
