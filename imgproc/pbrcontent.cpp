#include "imgproc/pbrcontent.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcvrda.h>
#include <dcmtk/dcmdata/dcvrtm.h>

#include "hsutils/Utils.h"
#include "imgproc/elementvalues.h"
#include "privateblock/PBItem.h"

namespace {

enum : unsigned short {
    s_keyFingerprint = 0x3A,
    s_keyKind = 0x45,
    s_keyFiles = 0x46,
    s_keyDate = 0x47,
    s_keyTime = 0x48,
    s_keySeries = 0x49,
    s_keyObjects = 0x4A,
    s_keyOverride = 0x62,
    s_keyOverrideLabel = 0x63,
};

enum class DateResult { None, Read, Inconsistent };

/// Date and time of a block, which belong together: one without the other, or one that is no date, is
/// inconsistent.
DateResult readDate(PBItem& block, OFDate& date, OFTime& time) {
    DcmElement* element = nullptr;
    block.findAndGetPBElement(s_keyDate, element);
    auto* dateElement = dynamic_cast<DcmDate*>(element);
    block.findAndGetPBElement(s_keyTime, element);
    auto* timeElement = dynamic_cast<DcmTime*>(element);
    if (dateElement == nullptr && timeElement == nullptr) return DateResult::None;
    if (dateElement == nullptr || timeElement == nullptr) return DateResult::Inconsistent;
    if (dateElement->getOFDate(date).good() && timeElement->getOFTime(time).good()) return DateResult::Read;
    date.clear();
    time.clear();
    return DateResult::Inconsistent;
}

/// The text under a key, without its padding; nothing when the block has none.
std::optional<std::string> textUnder(PBItem& block, unsigned short key) {
    const char* text = nullptr;
    if (block.findAndGetPBString(key, text).bad() || text == nullptr) return std::nullopt;
    return unpadded(text);
}

bool isPartial(PBItem& block) {
    return textUnder(block, s_keyKind) == "PARTIAL";
}

/// Modality + "." + instance UID of a referenced object; empty when it is incomplete or of an unknown class.
std::string referencedObject(DcmItem& item) {
    const std::string sopClass = textOf(item, DCM_ReferencedSOPClassUID).value_or("");
    const std::string instance = textOf(item, DCM_ReferencedSOPInstanceUID).value_or("");
    if (sopClass.empty() || instance.empty()) return {};
    const char* modality = dcmSOPClassUIDToModality(sopClass.c_str());
    return modality != nullptr ? std::string(modality) + "." + instance : std::string();
}

template <typename Visit>
void forEachItem(DcmSequenceOfItems* sequence, Visit visit) {
    if (sequence == nullptr) return;
    for (DcmObject* object = sequence->nextInContainer(nullptr); object != nullptr;
         object = sequence->nextInContainer(object))
        if (auto* item = dynamic_cast<DcmItem*>(object)) visit(*item);
}

template <typename Visit>
void forEachItem(PBItem& block, unsigned short key, Visit visit) {
    DcmSequenceOfItems* sequence = nullptr;
    block.findAndGetPBSequence(key, sequence);
    forEachItem(sequence, visit);
}

}  // namespace

CPbRContent::CPbRContent(CImageProcess* process, DcmItem& dataset)
    : CExtractedData(process, nullptr, 1), m_dataset(dataset) {}

CPbRContent::~CPbRContent() = default;

bool CPbRContent::init() {
    DcmItem* item = nullptr;
    const OFCondition found = PBItem(m_dataset).findAndGetPBSequenceItem(s_keyOverride, item, 0);
    if (found == EC_TagNotFound) return true;
    if (found.bad()) return false;
    if (item == nullptr) return true;
    PBItem block(*item);
    block.calcPrivateBlock(false);
    // All copies are made before the first is inserted: one may replace the very sequence that holds the
    // item.
    std::vector<std::unique_ptr<DcmElement>> copies;
    for (DcmObject* object = item->nextInContainer(nullptr); object != nullptr;
         object = item->nextInContainer(object)) {
        if (block.isObjectOurPrivateElement(object, s_keyOverrideLabel)) continue;
        std::unique_ptr<DcmObject> copy(object->clone());
        auto* element = dynamic_cast<DcmElement*>(copy.get());
        if (element == nullptr) return false;
        copy.release();
        copies.emplace_back(element);
    }
    for (std::unique_ptr<DcmElement>& copy : copies) {
        if (m_dataset.insert(copy.get(), OFTrue).bad()) return false;
        copy.release();
    }
    return true;
}

int CPbRContent::postProcess() {
    PBItem block(m_dataset);
    const char* fingerprint = nullptr;
    if (block.findAndGetPBString(s_keyFingerprint, fingerprint).good() && fingerprint != nullptr)
        m_fingerprint = fingerprint;
    const auto kind = textUnder(block, s_keyKind);
    if (!kind) return 0;
    if (*kind == "STUDY") {
        m_contentKind = PbRKind::Study;
        return 0;
    }
    if (*kind != "PARTIAL") return 1;
    m_contentKind = PbRKind::Partial;
    return readPartialContent(block);
}

int CPbRContent::readPartialContent(PBItem& block) {
    const DateResult date = readDate(block, m_date, m_time);
    if (date == DateResult::Inconsistent) return 1;
    readFiles(block);
    readSeries(block);
    readObjects(block);
    if (date == DateResult::Read || !m_files.empty() || !m_series.empty() || !m_objects.empty()) return 0;
    m_contentKind = PbRKind::None;
    return 1;
}

void CPbRContent::readFiles(PBItem& block) {
    forEachItem(block, s_keyFiles, [this](DcmItem& item) {
        std::string name = referencedObject(item);
        if (!name.empty()) m_files.push_back(std::move(name));
    });
}

void CPbRContent::readSeries(PBItem& block) {
    forEachItem(block, s_keySeries, [this](DcmItem& item) {
        PBItem itemBlock(item);
        InvalidationRecord record;
        record.uid = textOf(item, DCM_SeriesInstanceUID).value_or("");
        if (record.uid.empty() || !isPartial(itemBlock)) return;
        if (readDate(itemBlock, record.date, record.time) != DateResult::Read) return;
        m_series.push_back(std::make_unique<InvalidationRecord>(record));
    });
}

void CPbRContent::readObjects(PBItem& block) {
    forEachItem(block, s_keyObjects, [this](DcmItem& item) {
        PBItem itemBlock(item);
        InvalidationRecord record;
        if (!isPartial(itemBlock) || readDate(itemBlock, record.date, record.time) != DateResult::Read)
            return;
        DcmSequenceOfItems* referenced = nullptr;
        item.findAndGetSequence(DCM_ReferencedSOPSequence, referenced);
        forEachItem(referenced, [&](DcmItem& object) {
            record.uid = referencedObject(object);
            if (!record.uid.empty()) m_objects.push_back(std::make_unique<InvalidationRecord>(record));
        });
    });
}
