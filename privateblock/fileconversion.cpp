#include "privateblock/fileconversion.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <unistd.h>

#include "privateblock/privatedictionary.h"
#include "privateblock/privatetags.h"

namespace {

// Longer values stay in the file until they are needed.
constexpr Uint32 kMaxReadLength = 4096;

}  // namespace

int convertFilePrivateTags(const char* inFile, const char* outFile) {
    if (inFile == nullptr || access(inFile, R_OK) != 0) {
        logPrivateBlock("Error: couldn't access file:%s", inFile != nullptr ? inFile : "");
        return 0;
    }
    registerPrivateDictionary();
    DcmFileFormat file;
    if (file.loadFile(inFile, EXS_Unknown, EGL_noChange, kMaxReadLength).bad() ||
        file.loadAllDataIntoMemory().bad()) {
        logPrivateBlock("Error: file not loaded!");
        return 0;
    }
    DcmDataset* dataset = file.getDataset();
    handlePrivateTags(dataset);
    if (outFile == nullptr || file.saveFile(outFile, dataset->getOriginalXfer()).bad()) {
        logPrivateBlock("Error: couldn't create file:%s", outFile != nullptr ? outFile : "");
        return 0;
    }
    return 1;
}
