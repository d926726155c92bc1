#include "imgproc/objectsyntax.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include "imgproc/elementvalues.h"

const TransferSyntax* highThroughputOf(DcmDataset& dataset) {
    auto* file = dynamic_cast<DcmFileFormat*>(dataset.getParent());
    if (file == nullptr || file->getMetaInfo() == nullptr) return nullptr;
    return findHighThroughput(textOf(*file->getMetaInfo(), DCM_TransferSyntaxUID).value_or(""));
}

std::string transferSyntaxName(DcmDataset& dataset) {
    if (const TransferSyntax* syntax = highThroughputOf(dataset)) return std::string(syntax->name);
    return DcmXfer(dataset.getOriginalXfer()).getXferName();
}
