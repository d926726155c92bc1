#pragma once

#include <map>
#include <optional>

#include "tests/shared/testobject.h"
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
    int framesWritten = 0;  ///< calls of the progress callback
    /// Everything in the folder afterwards, path below it -> content.
    std::map<std::string, std::string> files;
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

/// An object of one frame, and the files that belong to it.
class FrameFilesTest : public ConversionTest {
protected:
    /// One frame: bytesPerPixel 1 (8 bits stored), 2 (16 bits, MONOCHROME2) or 3 (RGB); samples in buffer
    /// order.
    void makeObject(int columns, int rows, int bytesPerPixel, const Bytes& samples,
                    const char* modality = "OT");
    /// Converts the object; whether that succeeded.
    bool convert(unsigned mask, const std::function<void(CVintakRawImage&)>& look = nullptr);
    Bytes file(const std::string& suffix) const;
    /// Makes "thumbnail.conf" and points the environment to it.
    void configure(const std::string& text);

private:
    std::optional<TestObject> m_object;
    std::string m_path;
    Outcome m_outcome;
};

/// A soft picture with some noise: samples of `bits` bits, from 0 up to the largest.
Bytes softPicture(int columns, int rows, int bytesPerPixel, int bits);
