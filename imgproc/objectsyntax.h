#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <string>

#include "hsutils/transfersyntaxes.h"

/// The High-Throughput JPEG 2000 syntax that the meta header of the object names; null for every other. The
/// data set's own original syntax is then the one under which the toolkit reads it.
const TransferSyntax* highThroughputOf(DcmDataset& dataset);

/// The name of the object's transfer syntax.
std::string transferSyntaxName(DcmDataset& dataset);
