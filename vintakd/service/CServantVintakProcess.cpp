#include "vintakd/service/CServantVintakProcess.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <stdexcept>

#include "imgproc/elementvalues.h"
#include "imgproc/objectlimits.h"
#include "privateblock/privatedictionary.h"
#include "vintakd/service/VintakServant.h"

namespace {

/// The whole value of the element as DICOM encodes it, values separated by backslashes. Throws
/// std::runtime_error for a binary value that is too large to be text.
std::string answerText(DcmElement& element) {
    if (!element.isaString() && element.getLength() > objectlimits::kBinaryValueBytes)
        throw std::runtime_error("the value of " + std::string(element.getTag().toString().c_str()) +
                                 " that is asked for has more than " +
                                 std::to_string(objectlimits::kBinaryValueBytes) + " bytes");
    const std::string text = shownValue(element);
    return text.substr(0, text.find('\0'));  // where the texts of an answer end
}

}  // namespace

CServantVintakProcess::CServantVintakProcess(DcmDataset* dataset, bool verbose, bool dumponly,
                                             bool escapeNewLines, const char* outputPrefix,
                                             const char* cachePrefix, int specificFrame,
                                             VintakServant* servant, int fileIndex)
    : CVintakProcess(dataset, verbose, dumponly, escapeNewLines, outputPrefix, cachePrefix, specificFrame),
      m_fileIndex(fileIndex),
      m_servant(servant) {}

void CServantVintakProcess::registerKeys(const TagValue* table, int count) {
    for (int i = 0; i < count; ++i) {
        const DcmTagKey& key = table[i].key;
        if (key.getGroup() == 0) continue;
        observers().addTag(key, fVintakTagNeedTag,
                           key.getGroup() == kPrivateGroup ? kPrivateCreator : nullptr);
    }
    observers().addTag(DCM_SpecificCharacterSet, fVintakCharEncoding, nullptr);
}

void CServantVintakProcess::fVintakTagNeedTag(IDicomTagParser2* parser) {
    auto* process = static_cast<CServantVintakProcess*>(parser);
    DcmElement* element = process->currentElement();
    process->m_servant->onElement(element, process->m_fileIndex, answerText(*element).c_str());
}

void CServantVintakProcess::fVintakCharEncoding(IDicomTagParser2* parser) {
    auto* process = static_cast<CServantVintakProcess*>(parser);
    process->m_servant->onCharacterSet(answerText(*process->currentElement()));
}
