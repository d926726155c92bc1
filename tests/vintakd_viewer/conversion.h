#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tests/imgproc/testobject.h"
#include "vintakd/vintakprocess.h"

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
    ~ConversionTest() override;

    Outcome convert(DcmDataset& dataset, const Options& options = {});
    std::filesystem::path m_folder;
};
