#pragma once

#include "vintakd/service/TagTable.h"
#include "vintakd/viewer/vintakprocess.h"

class VintakServant;

/// The servant's viewer process for one file: captures the requested tags and the character set on the way.
class CServantVintakProcess : public CVintakProcess {
public:
    /// As CVintakProcess; `servant` (borrowed) gets the captured values, as those of file `fileIndex`.
    CServantVintakProcess(DcmDataset* dataset, bool verbose, bool dumponly, bool escapeNewLines,
                          const char* outputPrefix, const char* cachePrefix, int specificFrame,
                          VintakServant* servant, int fileIndex);

    /// Adds a handler for every tag of `table` (an array of `count`) whose group is not 0, and one for the
    /// character set.
    void registerKeys(const TagValue* table, int count);

private:
    static void fVintakTagNeedTag(IDicomTagParser2* parser);
    static void fVintakCharEncoding(IDicomTagParser2* parser);

    int m_fileIndex;
    VintakServant* m_servant;
};
