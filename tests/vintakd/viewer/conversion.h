#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "tests/imgproc/testobject.h"
#include "tests/temporary_folder.h"
#include "vintakd/viewer/vintakprocess.h"

class CVintakRawImage;

/// What a request says besides the object.
struct Options {
    uint32_t mask = 0;
    bool noCached = false;
    bool needOptimize = true;
    bool dumpOnly = false;
    int specificFrame = 0;
};

/// What a conversion did.
struct Outcome {
    int result = -1;
    std::string cause;
    int framesSeen = 0;
    int framesWritten = 0;  ///< calls of the progress callback
    std::map<std::string, std::string>
        files;  ///< everything in the folder afterwards, path below it -> content
    /// One line of "o/x.desc", counted from 1, without its line feed.
    std::string line(int number) const;
    /// Field `number` of that line, counted from 1.
    std::string field(int lineNumber, int number) const;
};

/// Converts objects to the prefixes FOLDER/o/x (output) and FOLDER/c/x (cache) of a folder of the test's own.
class ConversionTest : public testing::Test {
protected:
    ConversionTest();

    /// `look` sees every finished frame.
    Outcome convert(DcmDataset& dataset, const Options& options = {},
                    const std::function<void(CVintakRawImage&)>& look = nullptr);
    TemporaryFolder m_folder;
};
